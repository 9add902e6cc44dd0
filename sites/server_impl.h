// The sites server's inside, shared by the files that make it up:
//   sites_server.cpp  listeners, refusals, the faults file's watcher, start and stop
//   site_routes.cpp   what a site answers (files, posts)
//   proxy.cpp         the proxy to loopback sites
//   answer.cpp        answers shaped by faults on their way out
//   fault_book.cpp    the faults in force; faults.cpp how they are written
//   recorder.cpp      the requests and posts seen
//   test_authority.cpp the certificates of HTTPS sites
#pragma once

#include "sites/answer.h"
#include "sites/fault_book.h"
#include "sites/recorder.h"
#include "sites/sites_server.h"
#include "sites/test_authority.h"

#include <condition_variable>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace sites {

struct SitesServer::Impl {
    struct Site {
        SiteConfig config;
        std::filesystem::path root;                 // canonical folder
        std::unique_ptr<detail::Listener> listener;  // none while refused
        SiteCertificate certificate;                 // an HTTPS site's
    };

    Config config;
    std::vector<Site> sites;
    std::unique_ptr<detail::Listener> proxy;
    int proxyPort = 0;

    std::mutex lifecycle;  // starting and stopping listeners
    bool started = false;
    bool running = false;

    detail::FaultBook faults;
    detail::Recorder recorder;

    std::thread watcher;
    std::mutex watcherMutex;
    std::condition_variable watcherWake;
    bool watcherQuit = false;
    bool watcherPoked = false;

    explicit Impl(Config c);
    Site* findSite(const std::string& name);

    // sites_server.cpp
    void issueCertificates();
    std::unique_ptr<detail::Listener> listen(int site, int port, int& bound);
    void stopAll();
    bool applyRefusals();
    void watch();
    void poke();
    void handle(int site, detail::Listener& listener, const httplib::Request& req, httplib::Response& res);

    // site_routes.cpp
    void handleSite(const Site& site, detail::Listener& listener, const httplib::Request& req,
                    httplib::Response& res);
    detail::Answer answerPost(const Site& site, const httplib::Request& req, const std::string& path,
                              const std::string& query);

    // proxy.cpp
    void handleProxy(detail::Listener& listener, const httplib::Request& req, httplib::Response& res);
    bool authorized(const httplib::Request& req) const;
};

}  // namespace sites

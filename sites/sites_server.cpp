// The sites server on cpp-httplib: each site (and the proxy) is one
// httplib::Server with its own listening thread. This file keeps them
// running: listeners, sites refused and let in again by faults, the faults
// file's watcher, start and stop. server_impl.h says where the rest is.
#include "sites/server_impl.h"
#include "sites/test_authority.h"
#include "sites/url_text.h"

#include <signal.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <iostream>
#include <optional>
#include <stdexcept>
#include <system_error>

namespace sites {

namespace fs = std::filesystem;
using detail::Body;
using detail::Listener;
using detail::splitTarget;

namespace {

constexpr const char* kLoopback = "127.0.0.1";
// How often the faults file is looked at when no request comes (refused sites get none).
constexpr auto kWatchInterval = std::chrono::milliseconds(50);

void stopListener(std::unique_ptr<Listener>& l) {
    if (!l) return;
    l->stopping = true;
    l->server->stop();
    if (l->thread.joinable()) l->thread.join();
    l.reset();
}

}  // namespace

SitesServer::Impl::Impl(Config c) : config(std::move(c)), faults(config.faultsFile) {
    for (const auto& s : config.sites) {
        if (s.name.empty() || s.name == "proxy")
            throw std::invalid_argument("a site needs a name other than 'proxy'");
        for (const auto& other : sites)
            if (other.config.name == s.name) throw std::invalid_argument("site '" + s.name + "' given twice");
        sites.push_back(Site{s, {}, nullptr, {}});
    }
}

void SitesServer::Impl::issueCertificates() {
    std::optional<TestAuthority> authority;
    for (auto& s : sites) {
        if (s.config.tlsNames.empty()) continue;
        if (config.authority.empty())
            throw std::runtime_error("site " + s.config.name + " speaks HTTPS: the sites need a test authority");
        if (!authority) authority = TestAuthority::openOrMake(config.authority);
        s.certificate = authority->issue(s.config.tlsNames);
    }
}

SitesServer::Impl::Site* SitesServer::Impl::findSite(const std::string& name) {
    for (auto& s : sites)
        if (s.config.name == name) return &s;
    return nullptr;
}

std::unique_ptr<Listener> SitesServer::Impl::listen(int site, int port, int& bound) {
    auto l = std::make_unique<Listener>();
    const Site* tls = site >= 0 && !sites[static_cast<std::size_t>(site)].config.tlsNames.empty()
                          ? &sites[static_cast<std::size_t>(site)]
                          : nullptr;
    if (tls) {
        // httplib takes its own references to the certificate and key.
        l->server = std::make_unique<httplib::SSLServer>(tls->certificate.certificate.get(), tls->certificate.key.get());
        if (!static_cast<httplib::SSLServer&>(*l->server).is_valid()) return nullptr;
    } else {
        l->server = std::make_unique<httplib::Server>();
    }
    auto& s = *l->server;
    // An idle kept-alive connection holds a worker that stop() has to wait for.
    s.set_keep_alive_timeout(1);
    s.set_read_timeout(5);
    s.set_write_timeout(5);
    Listener* lp = l.get();
    auto handler = [this, site, lp](const httplib::Request& req, httplib::Response& res) {
        handle(site, *lp, req, res);
    };
    s.Get(".*", handler);
    s.Post(".*", handler);
    s.Put(".*", handler);
    s.Patch(".*", handler);
    s.Delete(".*", handler);
    s.Options(".*", handler);
    bound = port == 0 ? s.bind_to_any_port(kLoopback) : (s.bind_to_port(kLoopback, port) ? port : -1);
    if (bound <= 0) return nullptr;
    l->thread = std::thread([lp] {
        lp->server->listen_after_bind();
        lp->ended = true;
    });
    // stop() does nothing to a server that is not running yet.
    while (!s.is_running() && !l->ended) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return l;
}

void SitesServer::Impl::stopAll() {
    // Every stall and trickle ends first: the proxy may be waiting on a site.
    for (auto& s : sites)
        if (s.listener) s.listener->stopping = true;
    if (proxy) proxy->stopping = true;
    for (auto& s : sites) stopListener(s.listener);
    stopListener(proxy);
}

// Closes the listeners of refused sites and re-opens the others on their
// port. The lifecycle lock is held. False when a port could not be bound again.
bool SitesServer::Impl::applyRefusals() {
    bool ok = true;
    for (std::size_t i = 0; i < sites.size(); ++i) {
        auto& site = sites[i];
        bool refused = faults.refused(site.config.name);
        if (refused && site.listener) {
            stopListener(site.listener);
        } else if (!refused && !site.listener) {
            int bound = 0;
            site.listener = listen(static_cast<int>(i), site.config.port, bound);
            if (!site.listener) {
                std::cerr << "kpm-sites: cannot listen again on " << kLoopback << ":" << site.config.port
                          << " for site " << site.config.name << "\n";
                ok = false;
            }
        }
    }
    return ok;
}

void SitesServer::Impl::watch() {
    std::unique_lock lock(watcherMutex);
    while (!watcherQuit) {
        watcherWake.wait_for(lock, kWatchInterval, [&] { return watcherQuit || watcherPoked; });
        if (watcherQuit) break;
        watcherPoked = false;
        lock.unlock();
        faults.reload();
        {
            std::lock_guard life(lifecycle);
            if (running) applyRefusals();
        }
        lock.lock();
    }
}

void SitesServer::Impl::poke() {
    {
        std::lock_guard lock(watcherMutex);
        watcherPoked = true;
    }
    watcherWake.notify_one();
}

void SitesServer::Impl::handle(int site, Listener& listener, const httplib::Request& req, httplib::Response& res) {
    try {
        if (site < 0) handleProxy(listener, req, res);
        else handleSite(sites[static_cast<std::size_t>(site)], listener, req, res);
    } catch (const std::exception& e) {
        auto [path, query] = splitTarget(req.target);
        auto record = recorder.arrive(site < 0 ? "proxy" : sites[static_cast<std::size_t>(site)].config.name,
                                      req.method, req.get_header_value("Host"), path, query);
        res = httplib::Response();
        detail::send(recorder, listener, req, res, record, 500,
                     Body::fromText(std::string("internal error: ") + e.what() + "\n"), std::nullopt);
    }
}

SitesServer::SitesServer(Config config) : impl_(std::make_unique<Impl>(std::move(config))) {}

SitesServer::~SitesServer() { stop(); }

void SitesServer::start() {
    auto& m = *impl_;
    {
        std::lock_guard life(m.lifecycle);
        if (m.started) throw std::logic_error("the sites server starts once");
        m.started = true;

        // httplib writes with plain send(): a client hanging up mid-body would
        // otherwise end the whole process with SIGPIPE.
        struct sigaction current{};
        if (sigaction(SIGPIPE, nullptr, &current) == 0 && current.sa_handler == SIG_DFL) std::signal(SIGPIPE, SIG_IGN);

        for (auto& s : m.sites) {
            std::error_code ec;
            s.root = fs::canonical(s.config.folder, ec);
            if (ec || !fs::is_directory(s.root))
                throw std::runtime_error("site " + s.config.name + ": no folder " + s.config.folder.string());
        }
        m.issueCertificates();
        m.recorder.open(m.config.logFile, m.config.postsFolder);

        auto fail = [&](const std::string& name, int port) {
            m.stopAll();
            return std::runtime_error("cannot listen on " + std::string(kLoopback) + ":" + std::to_string(port) +
                                      " for " + name);
        };
        for (std::size_t i = 0; i < m.sites.size(); ++i) {
            auto& s = m.sites[i];
            int bound = 0;
            s.listener = m.listen(static_cast<int>(i), s.config.port, bound);
            if (!s.listener) throw fail(s.config.name, s.config.port);
            s.config.port = bound;  // a refused site comes back on the same port
        }
        if (m.config.proxy) {
            m.proxy = m.listen(-1, m.config.proxy->port, m.proxyPort);
            if (!m.proxy) throw fail("proxy", m.config.proxy->port);
        }
        m.running = true;
        m.faults.reload();
        m.applyRefusals();
    }
    if (!m.config.faultsFile.empty()) m.watcher = std::thread([&m] { m.watch(); });
}

void SitesServer::stop() {
    auto& m = *impl_;
    {
        std::lock_guard lock(m.watcherMutex);
        m.watcherQuit = true;
    }
    m.watcherWake.notify_all();
    if (m.watcher.joinable()) m.watcher.join();
    std::lock_guard life(m.lifecycle);
    if (!m.running) return;
    m.stopAll();
    m.running = false;
}

int SitesServer::port(const std::string& name) const {
    if (name == "proxy" && impl_->config.proxy) return impl_->proxyPort;
    for (const auto& s : impl_->sites)
        if (s.config.name == name) return s.config.port;
    throw std::out_of_range("no site named " + name);
}

void SitesServer::setFault(const std::string& site, const std::string& path, const Fault& fault) {
    auto& m = *impl_;
    if (!m.findSite(site)) throw std::invalid_argument("no site named " + site);
    m.faults.set(site, path, fault);
    std::lock_guard life(m.lifecycle);
    if (m.running && !m.applyRefusals()) throw std::runtime_error("a refused site could not listen again");
}

void SitesServer::clearFaults() {
    auto& m = *impl_;
    m.faults.clearApi();
    std::lock_guard life(m.lifecycle);
    if (m.running && !m.applyRefusals()) throw std::runtime_error("a refused site could not listen again");
}

std::vector<RequestRecord> SitesServer::requests() const { return impl_->recorder.requests(); }

std::vector<PostRecord> SitesServer::posts() const { return impl_->recorder.posts(); }

}  // namespace sites

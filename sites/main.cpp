// kpm-sites: the sites a pass talks to, on loopback, until SIGTERM or SIGINT.
// Scripts start it in the background and wait for the ports file.
#include <signal.h>

#include <charconv>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>
#include <vector>
#include <string>
#include <system_error>

#include "sites/sites_server.h"

namespace {

const char* const kUsage =
    "usage: kpm-sites --site NAME=FOLDER [--site NAME=FOLDER ...] [--port NAME=PORT ...]\n"
    "                 [--proxy USER:PASS | --proxy -] [--proxy-host HOST=NAME ...]\n"
    "                 [--log FILE] [--faults FILE] [--posts FOLDER]\n"
    "                 [--tls NAME=HOST[,HOST...] ...] [--authority FOLDER]\n"
    "                 --ports-file FILE\n"
    "\n"
    "Serves each FOLDER as site NAME on 127.0.0.1 (a free port unless --port NAME=PORT;\n"
    "NAME may be 'proxy'). --proxy adds a proxy to loopback sites, asking for USER:PASS\n"
    "unless '-'; --proxy-host sends the proxy's requests for HOST to site NAME.\n"
    "When every listener is up, FILE gets one NAME=PORT line per site and\n"
    "the proxy (written whole: a temporary file renamed). Runs until SIGTERM or SIGINT.\n"
    "\n"
    "--log FILE     one line per request: site method host path query status bytes (tabs)\n"
    "--faults FILE  lines '<site> <path|*> <fault> [arg] [times=K]', re-read while running;\n"
    "               faults: a status (404, 500, ...), refuse (whole site), reset BYTES,\n"
    "               stall SECONDS, slow BYTES_PER_SECOND, empty (200, no body),\n"
    "               redirect URL (302 to URL)\n"
    "--posts FOLDER each posted body is also written there, numbered on after the posts\n"
    "               the folder already holds (a restart never writes over them)\n"
    "--tls NAME=HOSTS  site NAME speaks HTTPS only, with a certificate for the HOSTS\n"
    "               (comma-separated) issued by the test authority\n"
    "--authority FOLDER  the test authority: FOLDER/ca.pem is the root a machine must\n"
    "               trust; made there when missing (needed with --tls)\n"
    "\n"
    "A POST is answered with the file its path names, else with <kind>.txt of the\n"
    "site's folder, where <kind> is the body's root element (wppthmsbbllist.txt,\n"
    "wppthdwldinfo.txt on a management site), else with an empty body.\n";

int usage(const std::string& problem) {
    std::cerr << "kpm-sites: " << problem << "\n" << kUsage;
    return 2;
}

bool splitPair(const std::string& text, std::string& name, std::string& value) {
    auto eq = text.find('=');
    if (eq == std::string::npos || eq == 0 || eq + 1 == text.size()) return false;
    name = text.substr(0, eq);
    value = text.substr(eq + 1);
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    sites::Config config;
    std::map<std::string, int> ports;
    std::map<std::string, std::string> proxyHosts;  // --proxy-host
    std::map<std::string, std::vector<std::string>> tlsNames;  // --tls
    std::filesystem::path portsFile;

    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i];
        if (arg == "-h" || arg == "--help") {
            std::cout << kUsage;
            return 0;
        }
        if (i + 1 >= argc) return usage(arg + " needs a value");
        std::string value = argv[++i];
        std::string name, rest;
        if (arg == "--site") {
            if (!splitPair(value, name, rest)) return usage("--site takes NAME=FOLDER, not " + value);
            config.sites.push_back({name, rest, 0, {}});
        } else if (arg == "--port") {
            int port = 0;
            if (!splitPair(value, name, rest)) return usage("--port takes NAME=PORT, not " + value);
            auto [end, ec] = std::from_chars(rest.data(), rest.data() + rest.size(), port);
            if (ec != std::errc() || end != rest.data() + rest.size() || port < 1 || port > 65535)
                return usage("bad port in " + value);
            ports[name] = port;
        } else if (arg == "--proxy") {
            if (value != "-" && value.find(':') == std::string::npos)
                return usage("--proxy takes USER:PASS or -, not " + value);
            config.proxy = sites::ProxyConfig{0, value == "-" ? "" : value, {}};
        } else if (arg == "--proxy-host") {
            if (!splitPair(value, name, rest)) return usage("--proxy-host takes HOST=NAME, not " + value);
            proxyHosts[name] = rest;
        } else if (arg == "--log") {
            config.logFile = value;
        } else if (arg == "--faults") {
            config.faultsFile = value;
        } else if (arg == "--posts") {
            config.postsFolder = value;
        } else if (arg == "--tls") {
            if (!splitPair(value, name, rest)) return usage("--tls takes NAME=HOST[,HOST...], not " + value);
            std::stringstream hosts(rest);
            for (std::string host; std::getline(hosts, host, ',');)
                if (!host.empty()) tlsNames[name].push_back(host);
        } else if (arg == "--authority") {
            config.authority = value;
        } else if (arg == "--ports-file") {
            portsFile = value;
        } else {
            return usage("unknown option " + arg);
        }
    }
    if (config.sites.empty()) return usage("no --site given");
    if (!proxyHosts.empty()) {
        if (!config.proxy) return usage("--proxy-host needs --proxy");
        config.proxy->siteHosts = proxyHosts;
    }
    if (portsFile.empty()) return usage("no --ports-file given");
    for (const auto& [name, port] : ports) {
        bool found = false;
        for (auto& s : config.sites)
            if (s.name == name) s.port = port, found = true;
        if (name == "proxy" && config.proxy) config.proxy->port = port, found = true;
        if (!found) return usage("--port names no site: " + name);
    }

    for (const auto& [name, hosts] : tlsNames) {
        bool found = false;
        for (auto& s : config.sites)
            if (s.name == name) s.tlsNames = hosts, found = true;
        if (!found) return usage("--tls names no site: " + name);
    }
    if (!tlsNames.empty() && config.authority.empty()) return usage("--tls needs --authority");

    // A ports file left by an earlier run must not be taken for this one's.
    std::error_code ec;
    std::filesystem::remove(portsFile, ec);

    // The signals are taken by sigwait below; blocked before any thread starts,
    // so that no listening thread receives them instead.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGTERM);
    sigaddset(&stopSignals, SIGINT);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);
    signal(SIGPIPE, SIG_IGN);

    try {
        sites::SitesServer server(config);
        server.start();

        auto temporary = portsFile;
        temporary += ".tmp";
        {
            std::ofstream out(temporary, std::ios::trunc);
            for (const auto& s : config.sites) out << s.name << "=" << server.port(s.name) << "\n";
            if (config.proxy) out << "proxy=" << server.port("proxy") << "\n";
            if (!out.flush()) throw std::runtime_error("cannot write " + temporary.string());
        }
        std::filesystem::rename(temporary, portsFile);

        int received = 0;
        sigwait(&stopSignals, &received);
        server.stop();
    } catch (const std::exception& e) {
        std::cerr << "kpm-sites: " << e.what() << "\n";
        std::filesystem::remove(portsFile, ec);
        return 1;
    }
    std::filesystem::remove(portsFile, ec);
    return 0;
}

// The sites server on cpp-httplib. Each site (and the proxy) is one
// httplib::Server with its own listening thread. Bodies always go out through
// a content provider: that is where faults cut, stall and trickle them, where
// the bytes actually sent are counted, and it keeps httplib from compressing
// answers behind our back.
#include "sites/sites_server.h"

#include "standins/base64.h"
#include "standins/string_cipher.h"

#include <httplib.h>
#include <signal.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <charconv>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <iterator>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <thread>

namespace sites {

namespace fs = std::filesystem;

namespace {

constexpr const char* kLoopback = "127.0.0.1";
constexpr std::size_t kChunk = 64 * 1024;
// Stalls and trickles sleep in slices this long so that stop() cuts them off promptly.
constexpr auto kPauseSlice = std::chrono::milliseconds(20);
// How often the faults file is looked at when no request comes (refused sites get none).
constexpr auto kWatchInterval = std::chrono::milliseconds(50);

std::string lower(std::string_view s) {
    std::string out(s);
    for (char& c : out) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return out;
}

bool startsWithNoCase(std::string_view s, std::string_view prefix) {
    return s.size() >= prefix.size() && lower(s.substr(0, prefix.size())) == lower(prefix);
}

// The request target split at the first '?': what was sent, undecoded.
std::pair<std::string, std::string> splitTarget(const std::string& target) {
    auto q = target.find('?');
    if (q == std::string::npos) return {target, ""};
    return {target.substr(0, q), target.substr(q + 1)};
}

std::string contentTypeFor(const fs::path& file) {
    return lower(file.extension().string()) == ".xml" ? "text/xml" : "application/octet-stream";
}

template <typename T>
std::optional<T> number(std::string_view text) {
    T value{};
    auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (ec != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return value;
}

bool isInside(const fs::path& root, const fs::path& p) {
    auto [r, q] = std::mismatch(root.begin(), root.end(), p.begin(), p.end());
    return r == root.end();
}

// A posted body's file name: sequence, site, path flattened to safe characters.
std::string postFileName(unsigned n, const std::string& site, const std::string& path) {
    std::string flat;
    auto start = path.find_first_not_of('/');
    for (char c : path.substr(start == std::string::npos ? path.size() : start))
        flat.push_back(std::isalnum(static_cast<unsigned char>(c)) || c == '.' || c == '-' ? c : '_');
    char seq[16];
    std::snprintf(seq, sizeof seq, "%04u", n);
    return std::string(seq) + "-" + site + (flat.empty() ? "" : "-" + flat);
}

struct AbsoluteUrl {
    std::string host;
    int port = 80;
    std::string path;
};

// "http://host[:port]/path" (query already split off).
std::optional<AbsoluteUrl> parseAbsolute(const std::string& target) {
    constexpr std::string_view scheme = "http://";
    if (!startsWithNoCase(target, scheme)) return std::nullopt;
    std::string rest = target.substr(scheme.size());
    auto slash = rest.find('/');
    std::string authority = rest.substr(0, slash);
    AbsoluteUrl url;
    url.path = slash == std::string::npos ? "/" : rest.substr(slash);
    if (auto at = authority.rfind('@'); at != std::string::npos) authority = authority.substr(at + 1);
    auto colon = authority.rfind(':');
    if (colon != std::string::npos && authority.find(']', colon) == std::string::npos) {
        auto port = number<int>(std::string_view(authority).substr(colon + 1));
        if (!port || *port < 1 || *port > 65535) return std::nullopt;
        url.port = *port;
        authority.resize(colon);
    }
    if (authority.empty()) return std::nullopt;
    url.host = authority;
    return url;
}

bool hopByHop(const std::string& name) {
    static const char* const names[] = {
        "connection", "keep-alive", "proxy-authorization", "proxy-authenticate", "proxy-connection",
        "te", "trailer", "transfer-encoding", "upgrade", "content-length",
        // httplib adds these to every request it receives
        "remote_addr", "remote_port", "local_addr", "local_port",
        // the proxy answers ranges itself, from the whole body
        "range", "if-range"};
    auto l = lower(name);
    return std::any_of(std::begin(names), std::end(names), [&](const char* n) { return l == n; });
}

}  // namespace

// ---------------------------------------------------------------- faults

Fault Fault::withStatus(int status, int times) {
    Fault f;
    f.kind = Kind::Status;
    f.status = status;
    f.times = times;
    return f;
}

Fault Fault::refuse() {
    Fault f;
    f.kind = Kind::Refuse;
    return f;
}

Fault Fault::reset(std::uint64_t bytes, int times) {
    Fault f;
    f.kind = Kind::Reset;
    f.amount = bytes;
    f.times = times;
    return f;
}

Fault Fault::stall(double seconds, int times) {
    Fault f;
    f.kind = Kind::Stall;
    f.seconds = seconds;
    f.times = times;
    return f;
}

Fault Fault::slow(std::uint64_t bytesPerSecond, int times) {
    Fault f;
    f.kind = Kind::Slow;
    f.amount = bytesPerSecond;
    f.times = times;
    return f;
}

Fault Fault::redirect(std::string location, int times) {
    Fault f;
    f.kind = Kind::Redirect;
    f.status = 302;
    f.location = std::move(location);
    f.times = times;
    return f;
}

Fault Fault::empty(int times) {
    Fault f;
    f.kind = Kind::Empty;
    f.times = times;
    return f;
}

std::optional<FaultRule> parseFaultLine(std::string_view line) {
    if (auto hash = line.find('#'); hash != std::string_view::npos) line = line.substr(0, hash);
    std::istringstream in{std::string(line)};
    std::vector<std::string> words{std::istream_iterator<std::string>(in), std::istream_iterator<std::string>()};
    if (words.empty()) return std::nullopt;
    auto bad = [&](const std::string& why) {
        return std::invalid_argument(why + " in fault line '" + std::string(line) + "'");
    };
    if (words.size() < 3) throw bad("expected <site> <path> <fault>");
    FaultRule rule{words[0], words[1], {}};
    if (rule.path != "*" && rule.path.front() != '/') throw bad("the path must start with '/' or be '*'");

    int times = 0;
    if (words.size() > 3 && words.back().rfind("times=", 0) == 0) {
        auto k = number<int>(std::string_view(words.back()).substr(6));
        if (!k || *k < 1) throw bad("times= takes a count of at least 1");
        times = *k;
        words.pop_back();
    }
    const std::string kind = words[2];
    auto argument = [&]() -> std::string_view {
        if (words.size() != 4) throw bad("'" + kind + "' takes one argument");
        return words[3];
    };
    auto count = [&](std::string_view text) {
        auto n = number<std::uint64_t>(text);
        if (!n) throw bad("'" + std::string(text) + "' is not a byte count");
        return *n;
    };

    if (kind == "refuse") {
        if (words.size() != 3) throw bad("'refuse' takes no argument");
        rule.fault = Fault::refuse();
    } else if (kind == "empty") {
        if (words.size() != 3) throw bad("'empty' takes no argument");
        rule.fault = Fault::empty(times);
    } else if (kind == "reset") {
        rule.fault = Fault::reset(count(argument()), times);
    } else if (kind == "redirect") {
        rule.fault = Fault::redirect(std::string(argument()), times);
    } else if (kind == "stall") {
        auto text = argument();
        auto seconds = number<double>(text);
        if (!seconds || !std::isfinite(*seconds) || *seconds < 0)
            throw bad("'" + std::string(text) + "' is not a number of seconds");
        rule.fault = Fault::stall(*seconds, times);
    } else if (kind == "slow") {
        auto rate = count(argument());
        if (rate == 0) throw bad("'slow' needs a rate above 0");
        rule.fault = Fault::slow(rate, times);
    } else if (kind.size() == 3 && std::all_of(kind.begin(), kind.end(), [](char c) { return c >= '0' && c <= '9'; })) {
        if (words.size() != 3) throw bad("a status takes no argument");
        int status = *number<int>(kind);
        if (status < 100) throw bad("'" + kind + "' is not an HTTP status");
        rule.fault = Fault::withStatus(status, times);
    } else {
        throw bad("unknown fault '" + kind + "'");
    }
    return rule;
}

// ---------------------------------------------------------------- paths and records

std::optional<fs::path> fileForUrlPath(const fs::path& folder, std::string_view urlPath) {
    if (urlPath.size() < 2 || urlPath.front() != '/') return std::nullopt;
    if (urlPath.find('\\') != std::string_view::npos || urlPath.find('\0') != std::string_view::npos)
        return std::nullopt;
    fs::path relative;
    std::string_view rest = urlPath.substr(1);
    while (true) {
        auto slash = rest.find('/');
        auto segment = rest.substr(0, slash);
        // Empty segments would make the rest absolute ("//etc/passwd").
        if (segment.empty() || segment == "." || segment == "..") return std::nullopt;
        relative /= std::string(segment);
        if (slash == std::string_view::npos) break;
        rest = rest.substr(slash + 1);
    }
    return folder / relative;
}

std::string rootElementOf(std::string_view xml) {
    size_t at = 0;
    while (true) {
        at = xml.find('<', at);
        if (at == std::string_view::npos || at + 1 >= xml.size()) return {};
        const char next = xml[at + 1];
        if (next == '?' || next == '!') {
            // A declaration, comment or doctype: skip to its end.
            const std::string_view end = xml.compare(at, 4, "<!--") == 0 ? "-->" : ">";
            at = xml.find(end, at + 2);
            if (at == std::string_view::npos) return {};
            continue;
        }
        const size_t stop = xml.find_first_of(" \t\r\n/>", at + 1);
        return std::string(xml.substr(at + 1, stop == std::string_view::npos ? std::string_view::npos : stop - at - 1));
    }
}

std::string RequestRecord::line() const {
    return site + '\t' + method + '\t' + host + '\t' + path + '\t' + query + '\t' + std::to_string(status) + '\t' +
           std::to_string(bytes);
}

// ---------------------------------------------------------------- the server

namespace {

struct Listener {
    httplib::Server server;
    std::thread thread;
    std::atomic<bool> stopping{false};
    std::atomic<bool> ended{false};
};

struct Site {
    SiteConfig config;
    fs::path root;  // canonical folder
    std::unique_ptr<Listener> listener;  // none while refused
};

struct ActiveFault {
    FaultRule rule;
    int used = 0;
};

// What an answer's body is: text in memory, or a file's content.
struct Body {
    std::string text;
    fs::path file;
    std::uint64_t size = 0;
    std::string contentType;

    static Body fromText(std::string text, std::string contentType = "text/plain") {
        Body b;
        b.size = text.size();
        b.text = std::move(text);
        b.contentType = std::move(contentType);
        return b;
    }
    static Body fromFile(const fs::path& file) {
        Body b;
        b.file = file;
        b.size = fs::file_size(file);
        b.contentType = contentTypeFor(file);
        return b;
    }
};

struct Answer {
    int status = 200;
    Body body;
};

// One body on its way out, shared by the content provider and its releaser.
struct Transfer {
    RequestRecord record;
    Body body;
    std::optional<Fault> fault;
    std::ifstream in;
    std::uint64_t sent = 0;
    std::uint64_t end = 0;  // offset where httplib stops asking
    bool begun = false;
    bool logged = false;
};

}  // namespace

struct SitesServer::Impl {
    Config config;
    std::vector<Site> sites;
    std::unique_ptr<Listener> proxy;
    int proxyPort = 0;

    std::mutex lifecycle;  // starting and stopping listeners
    bool started = false;
    bool running = false;

    mutable std::mutex data;  // everything below
    std::vector<ActiveFault> apiFaults;
    std::vector<ActiveFault> fileFaults;
    std::optional<std::string> faultsText;
    fs::file_time_type faultsTime{};
    std::vector<RequestRecord> requestLog;
    std::atomic<std::uint64_t> arrivals{0};
    std::vector<PostRecord> postLog;
    std::ofstream logFile;
    unsigned postCount = 0;

    std::thread watcher;
    std::mutex watcherMutex;
    std::condition_variable watcherWake;
    bool watcherQuit = false;
    bool watcherPoked = false;

    explicit Impl(Config c) : config(std::move(c)) {
        for (const auto& s : config.sites) {
            if (s.name.empty() || s.name == "proxy")
                throw std::invalid_argument("a site needs a name other than 'proxy'");
            for (const auto& other : sites)
                if (other.config.name == s.name) throw std::invalid_argument("site '" + s.name + "' given twice");
            sites.push_back(Site{s, {}, nullptr});
        }
    }

    Site* findSite(const std::string& name) {
        for (auto& s : sites)
            if (s.config.name == name) return &s;
        return nullptr;
    }

    // ---- listeners

    std::unique_ptr<Listener> listen(int site, int port, int& bound) {
        auto l = std::make_unique<Listener>();
        auto& s = l->server;
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
            lp->server.listen_after_bind();
            lp->ended = true;
        });
        // stop() does nothing to a server that is not running yet.
        while (!s.is_running() && !l->ended) std::this_thread::sleep_for(std::chrono::milliseconds(1));
        return l;
    }

    static void stopListener(std::unique_ptr<Listener>& l) {
        if (!l) return;
        l->stopping = true;
        l->server.stop();
        if (l->thread.joinable()) l->thread.join();
        l.reset();
    }

    void stopAll() {
        // Every stall and trickle ends first: the proxy may be waiting on a site.
        for (auto& s : sites)
            if (s.listener) s.listener->stopping = true;
        if (proxy) proxy->stopping = true;
        for (auto& s : sites) stopListener(s.listener);
        stopListener(proxy);
    }

    bool refusedLocked(const std::string& site) const {
        auto refuses = [&](const std::vector<ActiveFault>& faults) {
            return std::any_of(faults.begin(), faults.end(), [&](const ActiveFault& f) {
                return f.rule.site == site && f.rule.fault.kind == Fault::Kind::Refuse;
            });
        };
        return refuses(apiFaults) || refuses(fileFaults);
    }

    // Closes the listeners of refused sites and re-opens the others on their
    // port. The lifecycle lock is held. False when a port could not be bound again.
    bool applyRefusals() {
        bool ok = true;
        for (std::size_t i = 0; i < sites.size(); ++i) {
            auto& site = sites[i];
            bool refused;
            {
                std::lock_guard lock(data);
                refused = refusedLocked(site.config.name);
            }
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

    void watch() {
        std::unique_lock lock(watcherMutex);
        while (!watcherQuit) {
            watcherWake.wait_for(lock, kWatchInterval, [&] { return watcherQuit || watcherPoked; });
            if (watcherQuit) break;
            watcherPoked = false;
            lock.unlock();
            reloadFaults();
            {
                std::lock_guard life(lifecycle);
                if (running) applyRefusals();
            }
            lock.lock();
        }
    }

    void poke() {
        {
            std::lock_guard lock(watcherMutex);
            watcherPoked = true;
        }
        watcherWake.notify_one();
    }

    // ---- faults

    // Reads the faults file again when it changed; rewriting it re-arms its times= counts.
    bool reloadFaults() {
        if (config.faultsFile.empty()) return false;
        std::error_code ec;
        auto time = fs::last_write_time(config.faultsFile, ec);
        std::string text;
        if (ec) {
            time = {};
        } else {
            std::ifstream in(config.faultsFile, std::ios::binary);
            text.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
        }
        std::lock_guard lock(data);
        if (faultsText && *faultsText == text && faultsTime == time) return false;
        faultsText = text;
        faultsTime = time;
        fileFaults.clear();
        std::istringstream lines(text);
        std::string line;
        for (int number = 1; std::getline(lines, line); ++number) {
            try {
                if (auto rule = parseFaultLine(line)) fileFaults.push_back({*rule, 0});
            } catch (const std::invalid_argument& e) {
                std::cerr << "kpm-sites: " << config.faultsFile.string() << ":" << number << ": " << e.what() << "\n";
            }
        }
        return true;
    }

    // The fault this request meets, counted against its times=. An exact path
    // beats "*"; faults set through the API beat those of the file.
    std::optional<Fault> takeFault(const std::string& site, const std::string& decoded, const std::string& raw) {
        std::lock_guard lock(data);
        for (bool exact : {true, false}) {
            for (auto* faults : {&apiFaults, &fileFaults}) {
                for (auto& f : *faults) {
                    const auto& r = f.rule;
                    if (r.site != site || r.fault.kind == Fault::Kind::Refuse) continue;
                    if (exact ? (r.path != decoded && r.path != raw) : r.path != "*") continue;
                    if (r.fault.times > 0 && f.used >= r.fault.times) continue;
                    ++f.used;
                    return r.fault;
                }
            }
        }
        return std::nullopt;
    }

    // ---- records

    void log(const RequestRecord& record) {
        std::lock_guard lock(data);
        requestLog.push_back(record);
        if (logFile.is_open()) logFile << record.line() << '\n' << std::flush;
    }

    void finish(Transfer& t, std::uint64_t bytes) {
        if (t.logged) return;
        t.logged = true;
        t.record.bytes = bytes;
        log(t.record);
    }

    // ---- answering

    static bool pause(const Listener& listener, double seconds) {
        auto until = std::chrono::steady_clock::now() +
                     std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                         std::chrono::duration<double>(seconds));
        while (true) {
            if (listener.stopping) return false;
            auto now = std::chrono::steady_clock::now();
            if (now >= until) return true;
            std::this_thread::sleep_for(
                std::min<std::chrono::steady_clock::duration>(kPauseSlice, until - now));
        }
    }

    void handle(int site, Listener& listener, const httplib::Request& req, httplib::Response& res) {
        try {
            if (site < 0) handleProxy(listener, req, res);
            else handleSite(sites[static_cast<std::size_t>(site)], listener, req, res);
        } catch (const std::exception& e) {
            auto [path, query] = splitTarget(req.target);
            RequestRecord record{site < 0 ? "proxy" : sites[static_cast<std::size_t>(site)].config.name,
                                 req.method, req.get_header_value("Host"), path, query, 0, 0};
            record.arrival = ++arrivals;
            res = httplib::Response();
            send(listener, req, res, record, 500, Body::fromText(std::string("internal error: ") + e.what() + "\n"),
                 std::nullopt);
        }
    }

    std::optional<fs::path> servedFile(const Site& site, const std::string& decodedPath) const {
        auto file = fileForUrlPath(site.root, decodedPath);
        std::error_code ec;
        if (!file || !fs::is_regular_file(*file, ec)) return std::nullopt;
        // A link inside the folder must not lead out of it either.
        auto real = fs::canonical(*file, ec);
        if (ec || !isInside(site.root, real)) return std::nullopt;
        return real;
    }

    // Everything a site does with a POST: keep the body (and the document it
    // carries), choose the answer: the file the path names, else the file of
    // the document kind ("<kind>.txt"), else an empty answer.
    Answer answerPost(const Site& site, const httplib::Request& req, const std::string& path,
                      const std::string& query) {
        PostRecord post{site.config.name, path, query, req.body, rootElementOf(req.body), req.body};
        if (encryptedQuery(query)) {
            post.document = standins::decryptPostedDocument(req.body).value_or("");
            if (post.kind.empty()) post.kind = rootElementOf(post.document);
        }
        {
            std::lock_guard lock(data);
            postLog.push_back(post);
            if (!config.postsFolder.empty()) {
                std::ofstream out(config.postsFolder / postFileName(++postCount, site.config.name, path),
                                  std::ios::binary);
                out << req.body;
            }
        }
        if (auto file = servedFile(site, req.path)) return {200, Body::fromFile(*file)};
        if (!post.kind.empty())
            if (auto file = servedFile(site, "/" + post.kind + ".txt")) return {200, Body::fromFile(*file)};
        return {200, Body::fromText("", "text/plain")};
    }

    // "ec=256" among the query's parameters: the management site's mark of an encrypted post.
    static bool encryptedQuery(const std::string& query) {
        std::istringstream in(query);
        std::string parameter;
        while (std::getline(in, parameter, '&'))
            if (parameter == "ec=256") return true;
        return false;
    }

    void handleSite(const Site& site, Listener& listener, const httplib::Request& req, httplib::Response& res) {
        if (reloadFaults()) poke();
        auto [path, query] = splitTarget(req.target);
        RequestRecord record{site.config.name, req.method, req.get_header_value("Host"), path, query, 0, 0};
        record.arrival = ++arrivals;

        std::optional<Answer> post;
        if (req.method == "POST") post = answerPost(site, req, path, query);

        auto fault = takeFault(site.config.name, req.path, path);
        if (fault && fault->kind == Fault::Kind::Status) {
            send(listener, req, res, record, fault->status,
                 Body::fromText("kpm-sites: status " + std::to_string(fault->status) + " for " + path + "\n"),
                 std::nullopt);
            return;
        }
        if (fault && fault->kind == Fault::Kind::Redirect) {
            res.set_header("Location", fault->location);
            send(listener, req, res, record, fault->status, Body::fromText("kpm-sites: moved to " + fault->location + "\n"),
                 std::nullopt);
            return;
        }
        if (fault && fault->kind == Fault::Kind::Empty) {
            send(listener, req, res, record, 200, Body::fromText(""), std::nullopt);
            return;
        }
        if (post) {
            send(listener, req, res, record, post->status, std::move(post->body), fault);
            return;
        }
        if (req.method != "GET" && req.method != "HEAD") {
            send(listener, req, res, record, 405, Body::fromText("kpm-sites: method not allowed\n"), std::nullopt);
            return;
        }
        auto file = servedFile(site, req.path);
        if (!file) {
            send(listener, req, res, record, 404, Body::fromText("kpm-sites: not found: " + path + "\n"),
                 std::nullopt);
            return;
        }
        send(listener, req, res, record, 200, Body::fromFile(*file), fault);
    }

    // Answers with `status` and `body`, shaped by a reset, stall or slow fault.
    // The request's log line is written before the client can have seen the
    // end of the answer, so whoever has the answer also finds its line.
    void send(Listener& listener, const httplib::Request& req, httplib::Response& res, RequestRecord record,
              int status, Body body, std::optional<Fault> fault) {
        // Left unset, httplib answers 200, or 206 for a range it cuts from the body itself.
        if (status != 200) res.status = status;
        record.status = status == 200 && !req.ranges.empty() ? 206 : status;
        bool head = req.method == "HEAD";

        if (head || body.size == 0) {
            // No body goes out: a stall holds back the whole answer instead.
            if (fault && fault->kind == Fault::Kind::Stall) pause(listener, fault->seconds);
            log(record);
            if (body.size > 0) {
                // httplib never calls the provider for HEAD; it only gives the length.
                res.set_content_provider(body.size, body.contentType,
                                         [](std::size_t, std::size_t, httplib::DataSink&) { return false; });
            } else {
                res.set_content("", body.contentType);
            }
            return;
        }

        auto t = std::make_shared<Transfer>();
        t->record = std::move(record);
        t->fault = fault;
        if (!body.file.empty()) t->in.open(body.file, std::ios::binary);
        auto size = body.size;
        auto type = body.contentType;
        t->body = std::move(body);
        res.set_content_provider(
            size, type,
            [this, t, &listener](std::size_t offset, std::size_t length, httplib::DataSink& sink) {
                return provide(*t, listener, offset, length, sink);
            },
            [this, t](bool) { finish(*t, t->sent); });
    }

    bool provide(Transfer& t, const Listener& listener, std::size_t offset, std::size_t length,
                 httplib::DataSink& sink) {
        using Kind = Fault::Kind;
        const Fault* fault = t.fault ? &*t.fault : nullptr;
        if (!t.begun) {
            t.begun = true;
            t.end = offset + length;
            if (fault && fault->kind == Kind::Stall && !pause(listener, fault->seconds)) {
                finish(t, t.sent);
                return false;
            }
        }
        std::uint64_t chunk = std::min<std::uint64_t>(length, kChunk);
        if (fault && fault->kind == Kind::Slow) {
            chunk = std::min<std::uint64_t>(chunk, std::max<std::uint64_t>(1, fault->amount / 20));
            if (!pause(listener, static_cast<double>(chunk) / static_cast<double>(fault->amount))) {
                finish(t, t.sent);
                return false;
            }
        }
        bool cut = false;
        if (fault && fault->kind == Kind::Reset) {
            std::uint64_t left = fault->amount > t.sent ? fault->amount - t.sent : 0;
            if (left == 0) {
                finish(t, t.sent);
                return false;
            }
            if (chunk >= left) {
                chunk = left;
                cut = true;
            }
        }
        std::string data;
        if (t.body.file.empty()) {
            data = t.body.text.substr(offset, chunk);
        } else {
            data.resize(chunk);
            t.in.seekg(static_cast<std::streamoff>(offset));
            t.in.read(data.data(), static_cast<std::streamsize>(chunk));
            data.resize(static_cast<std::size_t>(std::max<std::streamsize>(0, t.in.gcount())));
        }
        if (data.size() != chunk) {  // the file shrank under us
            finish(t, t.sent);
            return false;
        }
        bool last = offset + chunk >= t.end;
        if (last) finish(t, t.sent + chunk);
        if (!sink.write(data.data(), data.size())) {
            finish(t, t.sent);
            return false;
        }
        t.sent += chunk;
        if (cut && !last) {
            finish(t, t.sent);
            return false;  // httplib drops the connection
        }
        return true;
    }

    // ---- proxy

    bool authorized(const httplib::Request& req) const {
        const auto& credentials = config.proxy->credentials;
        if (credentials.empty()) return true;
        auto header = req.get_header_value("Proxy-Authorization");
        if (!startsWithNoCase(header, "Basic ")) return false;
        auto token = header.substr(6);
        token.erase(0, token.find_first_not_of(' '));
        token.erase(token.find_last_not_of(' ') + 1);
        auto decoded = standins::fromBase64(token);
        return decoded && *decoded == credentials;
    }

    void handleProxy(Listener& listener, const httplib::Request& req, httplib::Response& res) {
        auto [target, query] = splitTarget(req.target);
        RequestRecord record{"proxy", req.method, req.get_header_value("Host"), target, query, 0, 0};
        record.arrival = ++arrivals;
        if (!authorized(req)) {
            res.set_header("Proxy-Authenticate", "Basic realm=\"kpm-sites\"");
            send(listener, req, res, record, 407, Body::fromText("kpm-sites proxy: authentication required\n"),
                 std::nullopt);
            return;
        }
        auto url = parseAbsolute(target);
        if (!url) {
            send(listener, req, res, record, 400,
                 Body::fromText("kpm-sites proxy: expected an absolute http:// request target\n"), std::nullopt);
            return;
        }
        int port = url->port;
        bool ownSite = false;
        for (const auto& [host, site] : config.proxy->siteHosts)
            if (lower(host) == lower(url->host)) {
                if (Site* own = findSite(site)) port = own->config.port, ownSite = true;
            }
        if (!ownSite && url->host != kLoopback && lower(url->host) != "localhost") {
            send(listener, req, res, record, 502,
                 Body::fromText("kpm-sites proxy: reaches loopback only (127.0.0.1, localhost), not " + url->host +
                                "\n"),
                 std::nullopt);
            return;
        }

        httplib::Client client(kLoopback, port);
        client.set_url_encode(false);  // forward the target exactly as the client wrote it
        client.set_decompress(false);
        client.set_connection_timeout(5);
        client.set_read_timeout(600);  // a site may be told to stall for long
        httplib::Request up;
        up.method = req.method;
        up.path = url->path + (query.empty() ? "" : "?" + query);
        for (const auto& [name, value] : req.headers)
            if (!hopByHop(name)) up.headers.emplace(name, value);
        up.body = req.body;
        auto result = client.send(up);
        if (!result) {
            send(listener, req, res, record, 502,
                 Body::fromText("kpm-sites proxy: no answer from " + url->host + ":" + std::to_string(url->port) +
                                " (" + httplib::to_string(result.error()) + ")\n"),
                 std::nullopt);
            return;
        }
        std::string type = "application/octet-stream";
        for (const auto& [name, value] : result->headers) {
            if (lower(name) == "content-type") type = value;
            else if (!hopByHop(name)) res.headers.emplace(name, value);
        }
        send(listener, req, res, record, result->status, Body::fromText(result->body, type), std::nullopt);
    }
};

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
        if (!m.config.logFile.empty()) {
            m.logFile.open(m.config.logFile, std::ios::app);
            if (!m.logFile) throw std::runtime_error("cannot open the request log " + m.config.logFile.string());
        }
        if (!m.config.postsFolder.empty()) {
            fs::create_directories(m.config.postsFolder);
            // A folder that already holds posts goes on numbering after them:
            // what was recorded is never written over.
            for (const auto& e : fs::directory_iterator(m.config.postsFolder)) {
                const std::string name = e.path().filename().string();
                if (name.size() > 4 && std::all_of(name.begin(), name.begin() + 4, [](char c) { return c >= '0' && c <= '9'; }))
                    m.postCount = std::max(m.postCount, static_cast<unsigned>(std::stoul(name.substr(0, 4))));
            }
        }

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
        m.reloadFaults();
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
    {
        std::lock_guard lock(m.data);
        std::erase_if(m.apiFaults, [&](const ActiveFault& f) { return f.rule.site == site && f.rule.path == path; });
        m.apiFaults.push_back({FaultRule{site, path, fault}, 0});
    }
    std::lock_guard life(m.lifecycle);
    if (m.running && !m.applyRefusals()) throw std::runtime_error("a refused site could not listen again");
}

void SitesServer::clearFaults() {
    auto& m = *impl_;
    {
        std::lock_guard lock(m.data);
        m.apiFaults.clear();
    }
    std::lock_guard life(m.lifecycle);
    if (m.running && !m.applyRefusals()) throw std::runtime_error("a refused site could not listen again");
}

std::vector<RequestRecord> SitesServer::requests() const {
    std::lock_guard lock(impl_->data);
    return impl_->requestLog;
}

std::vector<PostRecord> SitesServer::posts() const {
    std::lock_guard lock(impl_->data);
    return impl_->postLog;
}

}  // namespace sites

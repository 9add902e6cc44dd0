#include "platform/sim/sim_network.h"

#include <curl/curl.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstdio>
#include <mutex>
#include <unistd.h>

#include "platform/errors.h"
#include "platform/sim/sim_config.h"
#include "platform/sim/sim_files.h"
#include "platform/sim/sim_tls.h"
#include "standins/redirects.h"
#include "standins/network_map.h"

namespace platform::sim {

namespace fs = std::filesystem;

void initCurlOnce() {
    static std::once_flag once;
    std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

namespace {

class CurlTransport final : public standins::Transport {
public:
    CurlTransport(const standins::NetworkMap& map, unsigned stallSeconds, std::filesystem::path roots)
        : map_(map), stallSeconds_(stallSeconds), roots_(std::move(roots)) {}

    standins::TransferResult get(const std::string& url, const standins::DataSink& onData,
                                 const std::atomic<bool>* cancel) override {
        return standins::followRedirects(url, [&](const std::string& hop, std::string& location) {
            return transfer(hop, nullptr, onData, cancel, &location);
        });
    }

    // A post's redirect is an answer of its own.
    standins::TransferResult post(const std::string& url, const std::string& contentType, const std::string& body,
                                  const standins::DataSink& onData) override {
        const PostBody p{contentType, body};
        return transfer(url, &p, onData, nullptr, nullptr);
    }

    void useProxy(const std::string& server, const std::string& user, const std::string& password) override {
        proxyServer_ = server;
        proxyUser_ = user;
        proxyPassword_ = password;
    }

private:
    struct PostBody {
        const std::string& contentType;
        const std::string& data;
    };

    // One request; `location` gets a redirect's target.
    standins::TransferResult transfer(const std::string& url, const PostBody* post, const standins::DataSink& onData,
                                      const std::atomic<bool>* cancel, std::string* location) {
        standins::TransferResult r;
        auto parsed = standins::parseHttpUrl(url);
        if (!parsed) {
            r.reason = standins::reason::notHttp(url);
            return r;
        }
        // Through a proxy only the proxy's own name is looked up: it reaches the host.
        std::string proxyHost = proxyServer_;
        int proxyPort = 80;
        if (const size_t colon = proxyServer_.rfind(':'); colon != std::string::npos) {
            proxyHost = proxyServer_.substr(0, colon);
            proxyPort = std::atoi(proxyServer_.c_str() + colon + 1);
        }
        auto to = proxyServer_.empty() ? map_.resolve(parsed->host, parsed->port) : map_.resolve(proxyHost, proxyPort);
        if (!proxyServer_.empty() && !to) {
            r.reason = standins::reason::cannotConnect(proxyHost, proxyPort);
            return r;
        }
        if (!to) {
            // Nothing outside the machine is reachable: an unmapped host is unknown.
            r.reason = standins::reason::hostNotFound(parsed->host);
            r.unresolved = true;
            return r;
        }
        initCurlOnce();
        CURL* curl = curl_easy_init();
        if (!curl) {
            r.reason = "no HTTP client";
            return r;
        }
        Context ctx{onData, cancel, curl, {}, false};
        ctx.stallSeconds = stallSeconds_;
        char errbuf[CURL_ERROR_SIZE] = "";
        const std::string connectTo = parsed->host + ":" + std::to_string(parsed->port) + ":" +
                                      to->address + ":" + std::to_string(to->port);
        curl_slist* connect = curl_slist_append(nullptr, connectTo.c_str());
        curl_slist* headers = nullptr;
        if (post) {
            const std::string type = "Content-Type: " + post->contentType;
            headers = curl_slist_append(headers, type.c_str());
            headers = curl_slist_append(headers, "Expect:");  // the body goes at once
            curl_easy_setopt(curl, CURLOPT_POST, 1L);
            curl_easy_setopt(curl, CURLOPT_POSTFIELDS, post->data.data());
            curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(post->data.size()));
            curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers);
        }
        curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
        const std::string proxyAddress = "http://" + to->address + ":" + std::to_string(to->port);
        if (proxyServer_.empty()) {
            curl_easy_setopt(curl, CURLOPT_CONNECT_TO, connect);
            // The host's own proxy settings play no part on the simulated machine.
            curl_easy_setopt(curl, CURLOPT_PROXY, "");
            curl_easy_setopt(curl, CURLOPT_NOPROXY, "*");
        } else {
            curl_easy_setopt(curl, CURLOPT_PROXY, proxyAddress.c_str());
            curl_easy_setopt(curl, CURLOPT_NOPROXY, "");
            if (!proxyUser_.empty()) {
                curl_easy_setopt(curl, CURLOPT_PROXYAUTH, static_cast<long>(CURLAUTH_BASIC));
                curl_easy_setopt(curl, CURLOPT_PROXYUSERNAME, proxyUser_.c_str());
                curl_easy_setopt(curl, CURLOPT_PROXYPASSWORD, proxyPassword_.c_str());
            }
        }
        // Redirects are followed hop by hop (get), each hop's host through the map.
        curl_easy_setopt(curl, CURLOPT_FOLLOWLOCATION, 0L);
        curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "http,https");
        trustOnly(curl, roots_);
        curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT, 10L);
        curl_easy_setopt(curl, CURLOPT_LOW_SPEED_LIMIT, 1L);
        curl_easy_setopt(curl, CURLOPT_LOW_SPEED_TIME, static_cast<long>(stallSeconds_));
        curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
        curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, errbuf);
        curl_easy_setopt(curl, CURLOPT_HEADERFUNCTION, &Context::header);
        curl_easy_setopt(curl, CURLOPT_HEADERDATA, &ctx);
        curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, &Context::body);
        curl_easy_setopt(curl, CURLOPT_WRITEDATA, &ctx);
        curl_easy_setopt(curl, CURLOPT_NOPROGRESS, 0L);
        curl_easy_setopt(curl, CURLOPT_XFERINFOFUNCTION, &Context::progress);
        curl_easy_setopt(curl, CURLOPT_XFERINFODATA, &ctx);

        CURLcode code = curl_easy_perform(curl);
        long status = 0;
        curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
        curl_off_t bytes = 0;
        curl_easy_getinfo(curl, CURLINFO_SIZE_DOWNLOAD_T, &bytes);
        char* redirectUrl = nullptr;
        curl_easy_getinfo(curl, CURLINFO_REDIRECT_URL, &redirectUrl);
        const std::string redirect = redirectUrl ? redirectUrl : "";
        if (location) *location = redirect;
        const std::string certificate = certificateProblem(code, errbuf, parsed->host);
        curl_easy_cleanup(curl);
        curl_slist_free_all(connect);
        curl_slist_free_all(headers);

        r.httpStatus = status;
        r.bytes = static_cast<uint64_t>(bytes);
        if (ctx.sinkRefused) {
            r.reason = standins::reason::notWritten("the file");  // the target says which
        } else if (!certificate.empty()) {
            r.reason = certificate;
        } else if (ctx.stalled) {
            r.reason = standins::reason::stalled(stallSeconds_);
        } else if (code == CURLE_COULDNT_CONNECT || (code != CURLE_OK && status == 0 && code != CURLE_OPERATION_TIMEDOUT)) {
            r.reason = standins::reason::cannotConnect(parsed->host, parsed->port);
        } else if (code == CURLE_OPERATION_TIMEDOUT) {
            r.reason = standins::reason::stalled(stallSeconds_);
        } else if (code != CURLE_OK) {
            r.reason = standins::reason::interrupted(r.bytes);
        } else if (status < 200 || status > 299) {
            r.reason = standins::reason::redirected(status, ctx.statusText, redirect);
        } else {
            r.ok = true;
        }
        return r;
    }

    struct Context {
        const standins::DataSink& sink;
        const std::atomic<bool>* cancel;
        CURL* curl;
        std::string statusText;
        bool sinkRefused;
        // libcurl's low-speed limit averages uploaded bytes in, so a site that
        // takes a post and then says nothing would not count as stalled: the
        // silence is timed here, on bytes in either direction.
        unsigned stallSeconds = 0;
        curl_off_t lastDown = -1, lastUp = -1;
        std::chrono::steady_clock::time_point lastMove{};
        bool stalled = false;

        static size_t header(char* data, size_t size, size_t n, void* p) {
            auto* c = static_cast<Context*>(p);
            std::string line(data, size * n);
            if (line.rfind("HTTP/", 0) == 0) {
                while (!line.empty() && (line.back() == '\r' || line.back() == '\n')) line.pop_back();
                // "HTTP/1.1 404 Not Found": the text after the code.
                size_t code = line.find(' ');
                size_t text = code == std::string::npos ? std::string::npos : line.find(' ', code + 1);
                c->statusText = text == std::string::npos ? "" : line.substr(text + 1);
            }
            return size * n;
        }
        static size_t body(char* data, size_t size, size_t n, void* p) {
            auto* c = static_cast<Context*>(p);
            long status = 0;
            curl_easy_getinfo(c->curl, CURLINFO_RESPONSE_CODE, &status);
            if (status < 200 || status > 299) return size * n;  // an error page is no file
            if (!c->sink(data, size * n)) {
                c->sinkRefused = true;
                return 0;
            }
            return size * n;
        }
        static int progress(void* p, curl_off_t, curl_off_t dlnow, curl_off_t, curl_off_t ulnow) {
            auto* c = static_cast<Context*>(p);
            if (c->cancel && c->cancel->load()) return 1;
            const auto now = std::chrono::steady_clock::now();
            if (dlnow != c->lastDown || ulnow != c->lastUp) {
                c->lastDown = dlnow;
                c->lastUp = ulnow;
                c->lastMove = now;
            } else if (c->stallSeconds > 0 && now - c->lastMove >= std::chrono::seconds(c->stallSeconds)) {
                c->stalled = true;
                return 1;
            }
            return 0;
        }
    };

    const standins::NetworkMap& map_;
    std::string proxyServer_, proxyUser_, proxyPassword_;
    unsigned stallSeconds_;
    std::filesystem::path roots_;
};

// Staged in a host folder of the machine, moved onto the drive when done.
class SimFileTarget final : public standins::FileTarget {
public:
    SimFileTarget(SimFiles& files, fs::path staging) : files_(files), staging_(std::move(staging)) {}
    ~SimFileTarget() override { abandon(); }

    bool begin(const std::string& destination, std::string& error) override {
        abandon();
        size_t slash = destination.find_last_of('\\');
        if (slash == std::string::npos || slash == 0 || !files_.folderExists(destination.substr(0, slash))) {
            error = "the folder of " + destination + " does not exist";
            return false;
        }
        std::error_code ec;
        fs::create_directories(staging_, ec);
        static std::atomic<unsigned long> counter{0};
        temp_ = staging_ / ("download-" + std::to_string(::getpid()) + "-" + std::to_string(++counter) + ".part");
        out_ = std::fopen(temp_.c_str(), "wb");
        if (!out_) {
            error = "cannot stage " + destination;
            return false;
        }
        destination_ = destination;
        return true;
    }
    bool write(const char* data, size_t size, std::string& error) override {
        if (!out_ || std::fwrite(data, 1, size, out_) != size) {
            error = standins::reason::notWritten(destination_);
            return false;
        }
        return true;
    }
    bool commit(std::string& error) override {
        if (!out_) {
            error = "nothing to put in place";
            return false;
        }
        bool closed = std::fclose(out_) == 0;
        out_ = nullptr;
        if (!closed) {
            error = standins::reason::notWritten(destination_);
            return false;
        }
        try {
            files_.importFile(temp_, destination_);
        } catch (const ComError& e) {
            error = standins::reason::notWritten(destination_) + ": " + e.description();
            return false;
        }
        temp_.clear();
        return true;
    }
    void abandon() override {
        if (out_) std::fclose(out_);
        out_ = nullptr;
        std::error_code ec;
        if (!temp_.empty()) fs::remove(temp_, ec);
        temp_.clear();
    }

private:
    SimFiles& files_;
    fs::path staging_;
    fs::path temp_;
    std::FILE* out_ = nullptr;
    std::string destination_;
};

class SimStandinHost final : public standins::StandinHost {
public:
    SimStandinHost(const MachineConfig& config, SimFiles& files, fs::path staging)
        : config_(config), files_(files), staging_(std::move(staging)) {}

    std::unique_ptr<standins::Transport> newTransport() override { return newCurlTransport(config_); }
    std::unique_ptr<standins::FileTarget> newFileTarget() override {
        return std::make_unique<SimFileTarget>(files_, staging_);
    }
    bool makeFolders(const std::string& windowsFolder) override {
        std::string f = windowsFolder;
        if (f.empty() || f.back() != '\\') f += '\\';
        return files_.makeSureDirectoryPathExists(f);
    }
    std::string readablePath(const std::string& windowsPath) override {
        if (!files_.fileExists(windowsPath)) return {};
        return files_.hostPath(windowsPath).string();
    }

private:
    const MachineConfig& config_;
    SimFiles& files_;
    fs::path staging_;
};

}  // namespace

std::unique_ptr<standins::Transport> newCurlTransport(const MachineConfig& config) {
    return std::make_unique<CurlTransport>(config.network, config.stallSeconds, config.trustedRoots);
}

std::shared_ptr<standins::StandinHost> newSimStandinHost(const MachineConfig& config, SimFiles& files,
                                                         fs::path stagingFolder) {
    return std::make_shared<SimStandinHost>(config, files, std::move(stagingFolder));
}

int32_t SimInternet::urlDownloadToFile(const std::string& url, const std::string& path) {
    auto transport = host_->newTransport();
    auto target = host_->newFileTarget();
    standins::TransferResult r = standins::downloadToFile(*transport, *target, url, path);
    if (r.ok) return 0;
    if (r.unresolved) return inet::ResourceNotFound;
    if (r.httpStatus == 0) return inet::CannotConnect;
    return inet::DownloadFailure;
}

}  // namespace platform::sim

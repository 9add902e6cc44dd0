#include "platform/sim/sim_xmlhttp.h"

#include <curl/curl.h>

#include <algorithm>
#include <cctype>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/errors.h"
#include "platform/sim/sim_config.h"
#include "platform/sim/sim_network.h"
#include "platform/sim/sim_tls.h"
#include "standins/dispatch_base.h"
#include "standins/network_map.h"

namespace platform::sim {

namespace {

constexpr int32_t kInvalidArg = static_cast<int32_t>(0x80070057);  // E_INVALIDARG
constexpr const char* kCannotConnectText = "The download of the specified resource has failed.";
constexpr const char* kNoAnswerText = "Unspecified error";

// MSXML's SXH_PROXY_SETTING values.
constexpr int64_t kProxyDefault = 0, kProxyDirect = 1, kProxyNamed = 2;

std::string upper(std::string s) {
    for (char& c : s) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return s;
}

std::string trimmed(std::string s) {
    const char* blanks = " \t\r\n";
    s.erase(0, s.find_first_not_of(blanks));
    s.erase(s.find_last_not_of(blanks) + 1);
    return s;
}

// An optional argument a late-bound caller may leave out or pass as Empty.
bool given(standins::DispatchBase::Args args, size_t i) {
    return args.size() > i && !args[i].value.isEmpty() && !args[i].value.isNull();
}

struct CurlDeleter {
    void operator()(CURL* c) const { curl_easy_cleanup(c); }
    void operator()(curl_slist* l) const { curl_slist_free_all(l); }
};

class ServerXmlHttp final : public standins::DispatchBase {
public:
    ServerXmlHttp(standins::NetworkMap map, unsigned stallSeconds, std::filesystem::path roots)
        : DispatchBase("msxml3.dll"), map_(std::move(map)), stallSeconds_(stallSeconds), roots_(std::move(roots)) {
        // The request always completes inside send: an asynchronous open is
        // served synchronously, which a caller polling readyState cannot tell apart.
        method("open", 2, 5, [this](Args a) {
            reset();
            method_ = upper(a[0].value.toString());
            url_ = a[1].value.toString();
            user_ = given(a, 3) ? a[3].value.toString() : "";
            password_ = given(a, 4) ? a[4].value.toString() : "";
            readyState_ = 1;
            return Variant();
        });
        method("setRequestHeader", 2, [this](Args a) {
            if (readyState_ != 1) fail(kXmlHttpNoAnswer, kNoAnswerText);
            requestHeaders_.emplace_back(a[0].value.toString(), a[1].value.toString());
            return Variant();
        });
        method("send", 0, 1, [this](Args a) {
            if (readyState_ != 1) fail(kXmlHttpNoAnswer, kNoAnswerText);
            std::string body;
            bool hasBody = given(a, 0);
            if (hasBody) {
                // A document object is sent as its XML text.
                body = a[0].value.isObject() ? a[0].value.toObject().get("xml").toString() : a[0].value.toString();
            }
            perform(hasBody ? &body : nullptr);
            return Variant();
        });
        method("abort", 0, [this](Args) {
            reset();
            return Variant();
        });
        method("waitForResponse", 0, 1, [](Args) { return Variant(true); });
        method("setTimeouts", 4, [this](Args a) {
            connectMs_ = a[1].value.toLong();
            receiveMs_ = a[3].value.toLong();
            return Variant();
        });
        method("setProxy", 1, 3, [this](Args a) {
            const int64_t setting = a[0].value.toLong();
            if (setting == kProxyNamed) {
                if (!given(a, 1)) fail(kInvalidArg);
                proxy_ = a[1].value.toString();
            } else if (setting == kProxyDefault || setting == kProxyDirect) {
                proxy_.clear();
            } else {
                fail(kInvalidArg);
            }
            return Variant();
        });
        method("setProxyCredentials", 2, [this](Args a) {
            proxyUser_ = a[0].value.toString();
            proxyPassword_ = a[1].value.toString();
            return Variant();
        });
        property("readyState", [this] { return Variant(readyState_); });
        property("status", [this] { return Variant(answer().status); });
        property("statusText", [this] { return Variant(answer().statusText); });
        property("responseText", [this] { return Variant(answer().body); });
        method("getResponseHeader", 1, [this](Args a) {
            const std::string name = a[0].value.toString();
            if (answered_)
                for (const auto& [n, v] : response_.headers)
                    if (iequals(n, name)) return Variant(v);
            return Variant("");
        });
        method("getAllResponseHeaders", 0, [this](Args) {
            if (!answered_) return Variant("");
            std::string all;
            for (const auto& [n, v] : response_.headers) all += n + ": " + v + "\r\n";
            return Variant(all + "\r\n");
        });
    }

private:
    struct Response {
        long status = 0;
        std::string statusText, body;
        std::vector<std::pair<std::string, std::string>> headers;

        static size_t header(char* data, size_t size, size_t n, void* p) {
            auto* r = static_cast<Response*>(p);
            const std::string line = trimmed(std::string(data, size * n));
            if (line.rfind("HTTP/", 0) == 0) {
                // A new answer (after a 100 or an authentication round) replaces the last.
                r->headers.clear();
                r->body.clear();
                const size_t code = line.find(' ');
                const size_t text = code == std::string::npos ? std::string::npos : line.find(' ', code + 1);
                r->statusText = text == std::string::npos ? "" : line.substr(text + 1);
            } else if (const size_t colon = line.find(':'); colon != std::string::npos && colon > 0) {
                r->headers.emplace_back(trimmed(line.substr(0, colon)), trimmed(line.substr(colon + 1)));
            }
            return size * n;
        }
        static size_t write(char* data, size_t size, size_t n, void* p) {
            static_cast<Response*>(p)->body.append(data, size * n);
            return size * n;
        }
    };

    void reset() {
        readyState_ = 0;
        answered_ = false;
        response_ = Response();
        requestHeaders_.clear();
    }

    const Response& answer() const {
        if (!answered_) fail(kXmlHttpNoAnswer, kNoAnswerText);
        return response_;
    }

    [[noreturn]] void cannotConnect() {
        // Wine's MSXML leaves a request that reached no server at "sent".
        readyState_ = 2;
        fail(kXmlHttpCannotConnect, kCannotConnectText);
    }

    // Where the named proxy is: "host:port", maybe with a scheme or a list
    // after it (the first entry counts); its host goes through the map too.
    std::optional<standins::Endpoint> proxyEndpoint() const {
        std::string p = trimmed(proxy_);
        if (const size_t scheme = p.find("://"); scheme != std::string::npos) p.erase(0, scheme + 3);
        p = p.substr(0, p.find_first_of("; "));
        if (!p.empty() && p.back() == '/') p.pop_back();
        const auto url = standins::parseHttpUrl("http://" + p + "/");
        if (!url) return std::nullopt;
        return map_.resolve(url->host, url->port);
    }

    void perform(const std::string* body) {
        const auto url = standins::parseHttpUrl(url_);
        if (!url) cannotConnect();
        std::optional<standins::Endpoint> proxy, target;
        if (!proxy_.empty()) {
            proxy = proxyEndpoint();
            if (!proxy) cannotConnect();
        } else {
            // Nothing outside the machine is reachable: an unmapped host answers nothing.
            target = map_.resolve(url->host, url->port);
            if (!target) cannotConnect();
        }

        initCurlOnce();
        std::unique_ptr<CURL, CurlDeleter> curl(curl_easy_init());
        if (!curl) cannotConnect();
        CURL* c = curl.get();
        std::unique_ptr<curl_slist, CurlDeleter> connectTo, headers;
        curl_easy_setopt(c, CURLOPT_URL, url_.c_str());
        if (proxy) {
            const std::string address = "http://" + proxy->address + ":" + std::to_string(proxy->port);
            curl_easy_setopt(c, CURLOPT_PROXY, address.c_str());
            curl_easy_setopt(c, CURLOPT_NOPROXY, "");
            if (!proxyUser_.empty()) {
                curl_easy_setopt(c, CURLOPT_PROXYAUTH, static_cast<long>(CURLAUTH_BASIC));
                curl_easy_setopt(c, CURLOPT_PROXYUSERNAME, proxyUser_.c_str());
                curl_easy_setopt(c, CURLOPT_PROXYPASSWORD, proxyPassword_.c_str());
            }
        } else {
            const std::string rule = url->host + ":" + std::to_string(url->port) + ":" + target->address + ":" +
                                     std::to_string(target->port);
            connectTo.reset(curl_slist_append(nullptr, rule.c_str()));
            curl_easy_setopt(c, CURLOPT_CONNECT_TO, connectTo.get());
            // The host's own proxy settings play no part on the simulated machine.
            curl_easy_setopt(c, CURLOPT_PROXY, "");
            curl_easy_setopt(c, CURLOPT_NOPROXY, "*");
        }
        if (!user_.empty()) {
            curl_easy_setopt(c, CURLOPT_HTTPAUTH, static_cast<long>(CURLAUTH_BASIC));
            curl_easy_setopt(c, CURLOPT_USERNAME, user_.c_str());
            curl_easy_setopt(c, CURLOPT_PASSWORD, password_.c_str());
        }

        bool contentType = false;
        for (const auto& [n, v] : requestHeaders_) {
            contentType = contentType || iequals(n, "Content-Type");
            headers.reset(curl_slist_append(headers.release(), (n + ": " + v).c_str()));
        }
        // libcurl's own additions that MSXML does not make.
        if (!contentType) headers.reset(curl_slist_append(headers.release(), "Content-Type:"));
        headers.reset(curl_slist_append(headers.release(), "Expect:"));
        curl_easy_setopt(c, CURLOPT_HTTPHEADER, headers.get());

        if (method_ == "HEAD") {
            curl_easy_setopt(c, CURLOPT_NOBODY, 1L);
        } else if (method_ == "POST" || body) {
            const std::string& text = body ? *body : std::string();
            curl_easy_setopt(c, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(text.size()));
            curl_easy_setopt(c, CURLOPT_COPYPOSTFIELDS, text.c_str());
            if (method_ != "POST") curl_easy_setopt(c, CURLOPT_CUSTOMREQUEST, method_.c_str());
        } else if (method_ != "GET") {
            curl_easy_setopt(c, CURLOPT_CUSTOMREQUEST, method_.c_str());
        }

        // A redirect could name a host the map does not cover: not followed.
        curl_easy_setopt(c, CURLOPT_FOLLOWLOCATION, 0L);
        curl_easy_setopt(c, CURLOPT_PROTOCOLS_STR, "http,https");
        trustOnly(c, roots_);
        curl_easy_setopt(c, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(connectMs_ > 0 ? connectMs_ : 10000));
        const long stall = receiveMs_ > 0 ? static_cast<long>((receiveMs_ + 999) / 1000)
                                          : static_cast<long>(stallSeconds_);
        curl_easy_setopt(c, CURLOPT_LOW_SPEED_LIMIT, 1L);
        curl_easy_setopt(c, CURLOPT_LOW_SPEED_TIME, std::max(1L, stall));
        curl_easy_setopt(c, CURLOPT_NOSIGNAL, 1L);
        Response response;
        curl_easy_setopt(c, CURLOPT_HEADERFUNCTION, &Response::header);
        curl_easy_setopt(c, CURLOPT_HEADERDATA, &response);
        curl_easy_setopt(c, CURLOPT_WRITEFUNCTION, &Response::write);
        curl_easy_setopt(c, CURLOPT_WRITEDATA, &response);

        const CURLcode code = curl_easy_perform(c);
        curl_easy_getinfo(c, CURLINFO_RESPONSE_CODE, &response.status);
        if (code != CURLE_OK || response.status == 0) cannotConnect();
        response_ = std::move(response);
        answered_ = true;
        readyState_ = 4;
    }

    standins::NetworkMap map_;
    unsigned stallSeconds_;
    std::filesystem::path roots_;
    int64_t connectMs_ = 0, receiveMs_ = 0;
    long readyState_ = 0;
    std::string method_, url_, user_, password_;
    std::vector<std::pair<std::string, std::string>> requestHeaders_;
    std::string proxy_, proxyUser_, proxyPassword_;
    bool answered_ = false;
    Response response_;
};

}  // namespace

Object makeServerXmlHttp(const MachineConfig& config) {
    return Object(std::make_shared<ServerXmlHttp>(config.network, config.stallSeconds, config.trustedRoots));
}

}  // namespace platform::sim

#include "standins/web_post.h"

#include <string>

namespace standins {

namespace {

// An answer larger than this is no status answer: the transfer is abandoned.
constexpr size_t kMaxAnswer = 16 * 1024 * 1024;

constexpr int kInvalidUrl = 12005, kNotHttp = 12006, kHostNotFound = 12007, kCannotConnect = 12029,
              kTimeout = 12002, kAborted = 12030;

bool startsWith(const std::string& s, const std::string& prefix) { return s.rfind(prefix, 0) == 0; }

int errorNumber(const TransferResult& r) {
    if (r.unresolved) return kHostNotFound;
    if (r.httpStatus != 0 && (r.httpStatus < 200 || r.httpStatus > 299)) return static_cast<int>(r.httpStatus);
    if (startsWith(r.reason, "cannot connect to ")) return kCannotConnect;
    if (startsWith(r.reason, "no data for ")) return kTimeout;
    if (startsWith(r.reason, "not an http URL")) return kNotHttp;
    return kAborted;
}

}  // namespace

WebPost::WebPost(std::shared_ptr<StandinHost> host) : WebPost(*host) { owned_ = std::move(host); }

WebPost::WebPost(StandinHost& host) : DispatchBase(kWebPostProgId), host_(host) {
    method("PostXMLString", 9, [this](Args a) {
        const std::string xml = a[0].value.toString();
        const std::string url = a[2].value.toString();
        std::string answer;
        bool tooLarge = false;
        TransferResult r;
        int number = 0;
        if (url.empty()) {
            r.reason = "no URL";
            number = kInvalidUrl;
        } else {
            r = host_.newTransport()->post(url, "text/xml", xml, [&](const char* data, size_t size) {
                if (answer.size() + size > kMaxAnswer) return !(tooLarge = true);
                answer.append(data, size);
                return true;
            });
            if (!r.ok) number = errorNumber(r);
            if (tooLarge) r.reason = "answer larger than " + std::to_string(kMaxAnswer) + " bytes";
        }
        auto put = [&](size_t i, std::string text) {
            if (a[i].byRef) a[i].value = Variant(std::move(text));
        };
        put(5, r.ok ? answer : "");
        put(6, std::to_string(number));
        put(7, r.ok ? "" : r.reason);
        put(8, r.ok ? "" : kWebPostProgId);
        return Variant(r.ok);
    });
}

}  // namespace standins

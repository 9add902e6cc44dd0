#include "standins/job_download.h"

#include <string>

namespace standins {

JobDownload::JobDownload(std::shared_ptr<StandinHost> host)
    : DispatchBase(kJobDownloadProgId), host_(std::move(host)) {
    // Above 0, a body longer than this is stopped at once and nothing is kept.
    property("MaxBytes", [this] { return Variant(static_cast<int64_t>(maxBytes_)); },
             [this](const Variant& v) { maxBytes_ = v.toLong() > 0 ? static_cast<uint64_t>(v.toLong()) : 0; });
    method("JobDownload", 7, [this](Args a) {
        const std::string url = a[0].value.toString();
        const std::string destination = a[3].value.toString();
        TransferResult r;
        if (url.empty() || destination.empty()) {
            r.reason = "no URL or no destination";
        } else {
            auto transport = host_->newTransport();
            // The two spare arguments name a proxy ("host:port") and its
            // credentials ("user:password"); empty for a direct connection.
            const std::string proxy = a[1].value.toString(), credentials = a[2].value.toString();
            if (!proxy.empty()) {
                const size_t colon = credentials.find(':');
                transport->useProxy(proxy, credentials.substr(0, colon),
                                    colon == std::string::npos ? "" : credentials.substr(colon + 1));
            }
            auto target = host_->newFileTarget();
            r = downloadToFile(*transport, *target, url, destination, nullptr, nullptr, maxBytes_);
        }
        auto put = [&](size_t i, std::string text) {
            if (a[i].byRef) a[i].value = Variant(std::move(text));
        };
        if (r.ok) {
            // The outputs describe a failure; after a success the last one names
            // where redirects led, when they did (empty otherwise).
            put(4, "");
            put(5, "");
            put(6, r.finalUrl);
        } else {
            put(4, std::to_string(r.httpStatus));
            put(5, r.reason);
            put(6, url);
        }
        return Variant(r.ok);
    });
}

}  // namespace standins

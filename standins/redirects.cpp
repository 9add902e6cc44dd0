#include "standins/redirects.h"

#include <cctype>

namespace standins {

namespace {

// The scheme of an absolute URL ("https"), lower case; empty for a relative
// one, whose query may well hold "://" ("/dl?from=https://cdn/x").
std::string schemeOf(const std::string& url) {
    const size_t sep = url.find("://");
    if (sep == std::string::npos || sep == 0 || !std::isalpha(static_cast<unsigned char>(url[0]))) return {};
    std::string scheme = url.substr(0, sep);
    for (char& c : scheme) {
        if (!std::isalnum(static_cast<unsigned char>(c)) && c != '+' && c != '-' && c != '.') return {};
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return scheme;
}

}  // namespace

bool isFollowedRedirect(long status) {
    return status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
}

std::string resolveLocation(const std::string& base, const std::string& location) {
    if (!schemeOf(location).empty()) return location;
    const std::string scheme = schemeOf(base);
    if (location.rfind("//", 0) == 0) return scheme + ":" + location;
    const size_t authority = base.find("://") == std::string::npos ? 0 : base.find("://") + 3;
    const size_t pathStart = base.find_first_of("/?#", authority);
    const std::string origin = base.substr(0, pathStart);
    if (!location.empty() && location[0] == '/') return origin + location;
    std::string path = pathStart == std::string::npos ? "/" : base.substr(pathStart);
    path = path.substr(0, path.find_first_of("?#"));
    return origin + path.substr(0, path.rfind('/') + 1) + location;
}

TransferResult followRedirects(const std::string& url, const SingleGet& once) {
    std::string current = url;
    for (int hops = 0;; ++hops) {
        std::string location;
        TransferResult r = once(current, location);
        if (!isFollowedRedirect(r.httpStatus) || location.empty()) {
            if (current != url) r.finalUrl = current;
            return r;
        }
        const std::string next = resolveLocation(current, location);
        if (hops == kMostRedirects) {
            r.reason = reason::tooManyRedirects(kMostRedirects, next);
            return r;
        }
        if (schemeOf(current) == "https" && schemeOf(next) != "https") {
            r.reason = reason::redirectToHttp(next);
            return r;
        }
        current = next;
    }
}

}  // namespace standins

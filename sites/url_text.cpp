#include "sites/url_text.h"

#include <algorithm>
#include <cctype>
#include <iterator>

namespace sites::detail {

namespace fs = std::filesystem;

std::string lower(std::string_view s) {
    std::string out(s);
    for (char& c : out) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return out;
}

bool startsWithNoCase(std::string_view s, std::string_view prefix) {
    return s.size() >= prefix.size() && lower(s.substr(0, prefix.size())) == lower(prefix);
}

std::pair<std::string, std::string> splitTarget(const std::string& target) {
    auto q = target.find('?');
    if (q == std::string::npos) return {target, ""};
    return {target.substr(0, q), target.substr(q + 1)};
}

std::string contentTypeFor(const fs::path& file) {
    return lower(file.extension().string()) == ".xml" ? "text/xml" : "application/octet-stream";
}

bool isInside(const fs::path& root, const fs::path& p) {
    auto [r, q] = std::mismatch(root.begin(), root.end(), p.begin(), p.end());
    return r == root.end();
}

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

}  // namespace sites::detail

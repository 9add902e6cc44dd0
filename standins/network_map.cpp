#include "standins/network_map.h"

#include <algorithm>
#include <cctype>
#include <charconv>

namespace standins {

namespace {

std::string lower(std::string s) {
    for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

std::string trim(const std::string& s) {
    size_t b = s.find_first_not_of(" \t");
    if (b == std::string::npos) return {};
    return s.substr(b, s.find_last_not_of(" \t") - b + 1);
}

bool parsePort(std::string_view text, int& port) {
    int v = 0;
    auto [p, ec] = std::from_chars(text.data(), text.data() + text.size(), v);
    if (text.empty() || ec != std::errc() || p != text.data() + text.size() || v < 1 || v > 65535)
        return false;
    port = v;
    return true;
}

// "host:port" or "host" (then port stays 0); "[v6]:port" too.
bool splitHostPort(const std::string& text, std::string& host, int& port) {
    port = 0;
    if (!text.empty() && text[0] == '[') {
        size_t close = text.find(']');
        if (close == std::string::npos) return false;
        host = text.substr(1, close - 1);
        if (close + 1 == text.size()) return !host.empty();
        return text[close + 1] == ':' && parsePort(std::string_view(text).substr(close + 2), port);
    }
    size_t colon = text.rfind(':');
    if (colon == std::string::npos) {
        host = text;
        return !host.empty();
    }
    host = text.substr(0, colon);
    return !host.empty() && parsePort(std::string_view(text).substr(colon + 1), port);
}

}  // namespace

bool isLoopbackAddress(const std::string& address) {
    std::string a = lower(address);
    return a == "localhost" || a == "::1" || a.rfind("127.", 0) == 0;
}

std::optional<HttpUrl> parseHttpUrl(const std::string& url) {
    size_t sep = url.find("://");
    if (sep == std::string::npos) return std::nullopt;
    HttpUrl u;
    u.scheme = lower(url.substr(0, sep));
    if (u.scheme != "http" && u.scheme != "https") return std::nullopt;
    size_t start = sep + 3;
    size_t end = url.find_first_of("/?#", start);
    std::string authority = url.substr(start, end == std::string::npos ? std::string::npos : end - start);
    if (size_t at = authority.rfind('@'); at != std::string::npos) authority.erase(0, at + 1);
    if (!splitHostPort(authority, u.host, u.port)) return std::nullopt;
    u.host = lower(u.host);
    if (u.port == 0) u.port = u.scheme == "https" ? 443 : 80;
    u.target = end == std::string::npos ? "/" : url.substr(end);
    if (size_t hash = u.target.find('#'); hash != std::string::npos) u.target.erase(hash);
    if (u.target.empty() || u.target[0] != '/') u.target.insert(0, "/");
    return u;
}

bool NetworkMap::add(const std::string& key, const std::string& value, std::string& error) {
    Rule r;
    std::string k = trim(key);
    if (k == "*") {
        r.host = "*";
    } else if (!splitHostPort(k, r.host, r.port)) {
        error = "\"" + key + "\" is not HOST or HOST:PORT";
        return false;
    }
    r.host = lower(r.host);
    if (!splitHostPort(trim(value), r.to.address, r.to.port) || r.to.port == 0) {
        error = "\"" + value + "\" is not ADDRESS:PORT";
        return false;
    }
    if (!isLoopbackAddress(r.to.address)) {
        error = "\"" + value + "\" is not a loopback address: a pass never leaves the machine";
        return false;
    }
    rules_.push_back(std::move(r));
    return true;
}

std::optional<Endpoint> NetworkMap::resolve(const std::string& host, int port) const {
    std::string h = lower(host);
    const Rule* hostRule = nullptr;
    const Rule* anyRule = nullptr;
    for (const Rule& r : rules_) {
        if (r.host == h && r.port == port) return r.to;
        if (r.host == h && r.port == 0 && !hostRule) hostRule = &r;
        if (r.host == "*" && !anyRule) anyRule = &r;
    }
    if (hostRule) return hostRule->to;
    if (anyRule) return anyRule->to;
    return std::nullopt;
}

}  // namespace standins

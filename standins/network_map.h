// Host names as a managed computer sees them, on a machine that must never
// leave loopback: a table of rules that send a URL's host to a local
// endpoint. The simulated machine reads it from machine.ini [Network]; the
// Windows stand-ins from the same section of their network.ini.
//
//   HOST=127.0.0.1:PORT        that host, whatever port the URL names
//   HOST:PORT=127.0.0.1:PORT   only that host and port
//   *=127.0.0.1:PORT           every host no other rule names
//
// A host no rule names is unreachable. Host names match case-insensitively;
// a host-and-port rule wins over a host rule, which wins over "*".
#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace standins {

struct HttpUrl {
    std::string scheme;  // lower case: "http" or "https"
    std::string host;    // lower case, brackets of an IPv6 literal kept off
    int port = 0;        // the URL's port, else the scheme's default
    std::string target;  // path and query, "/" at least
};

// Splits an http(s) URL; nothing for anything else.
std::optional<HttpUrl> parseHttpUrl(const std::string& url);

struct Endpoint {
    std::string address;  // "127.0.0.1"
    int port = 0;
};

class NetworkMap {
public:
    // Adds one rule; false (and nothing added) when the key or the value
    // cannot be read. Only loopback endpoints are accepted.
    bool add(const std::string& key, const std::string& value, std::string& error);
    // Where a connection to host:port goes; nothing when no rule names it.
    std::optional<Endpoint> resolve(const std::string& host, int port) const;
    bool empty() const { return rules_.empty(); }

private:
    struct Rule {
        std::string host;  // lower case; "*" for the catch-all
        int port = 0;      // 0: any port
        Endpoint to;
    };
    std::vector<Rule> rules_;
};

// True for 127.0.0.0/8, "localhost" and "::1".
bool isLoopbackAddress(const std::string& address);

}  // namespace standins

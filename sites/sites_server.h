// The sites a pass talks to, played on loopback for tests and demos.
//
// Each site serves one folder over HTTP (or HTTPS, with a certificate from
// the project's test authority) on its own port of 127.0.0.1, keeps
// what is posted to it, and can be told to misbehave: answer an error status,
// refuse connections, cut a body short, stall or trickle it. An optional proxy
// forwards absolute-form requests, to loopback targets only. Every request is
// recorded in memory and, when asked, in a log file.
//
// A POST is kept with its document kind (the body's root element) and, when
// the query carries "ec=256", the document decrypted from the body's CDATA
// section (standins/string_cipher.h). It is answered with the file its path
// names, else with the file "<kind>.txt" of the site's folder, else with an
// empty body. A management site thus answers the agent's posts from:
//   wppthmsbbllist.txt   the partner's black list (blocked KB articles)
//   wppthdwldinfo.txt    the acknowledgement of a download status report
// The faults "empty", a status (500) and "refuse" play a site that gives no answer.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace sites {

struct SiteConfig {
    std::string name;
    std::filesystem::path folder;  // must exist; nothing outside it is ever served
    int port = 0;                  // 0: a free port chosen by the system
    // Not empty: the site speaks HTTPS only, with a certificate for these host
    // names issued by the test authority (Config::authority).
    std::vector<std::string> tlsNames;
};

struct ProxyConfig {
    int port = 0;             // 0: a free port chosen by the system
    std::string credentials;  // "user:password" for Basic proxy authentication; empty: none asked
    // Host names the proxy sends to one of its own sites (host -> site name),
    // as the managed computer's proxy would reach them on the Internet.
    std::map<std::string, std::string> siteHosts;
};

struct Config {
    std::vector<SiteConfig> sites;
    std::optional<ProxyConfig> proxy;  // reported by port() under the name "proxy"
    std::filesystem::path logFile;      // request log, appended; empty: kept in memory only
    std::filesystem::path faultsFile;   // re-read on every request; empty: faults set through the API only
    std::filesystem::path postsFolder;  // each posted body is also written there; empty: not
    // The test authority's folder (sites/test_authority.h), made when missing;
    // needed when a site speaks HTTPS.
    std::filesystem::path authority;
};

// How a site misbehaves for a path.
struct Fault {
    enum class Kind {
        Status,  // answer `status` with a short text body
        Refuse,  // close the site's listener: connecting is refused (site-level, path ignored)
        Reset,   // headers with the full length, `amount` body bytes, then the connection drops
        Stall,   // headers, nothing for `seconds`, then the body
        Slow,    // the body at `amount` bytes per second
        Empty,   // 200 with an empty body
        Redirect,  // 302 with a Location header naming `location`
    };
    Kind kind = Kind::Status;
    int status = 500;
    std::uint64_t amount = 0;
    double seconds = 0;
    int times = 0;  // only the first `times` matching requests see the fault; 0: all of them
    std::string location;  // Kind::Redirect

    static Fault withStatus(int status, int times = 0);
    static Fault refuse();
    static Fault reset(std::uint64_t bytes, int times = 0);
    static Fault stall(double seconds, int times = 0);
    static Fault slow(std::uint64_t bytesPerSecond, int times = 0);
    static Fault empty(int times = 0);
    static Fault redirect(std::string location, int times = 0);
};

struct FaultRule {
    std::string site;
    std::string path;  // exact URL path (decoded or as sent), or "*" for every path of the site
    Fault fault;
};

// One line of a faults file:
//   <site> <path> <fault> [arg] [times=K]      # comment
// where <fault> is a three-digit status, "refuse", "reset BYTES", "stall SECONDS",
// "slow BYTES_PER_SECOND", "empty" or "redirect URL". Returns nullopt for blank and comment-only lines;
// throws std::invalid_argument for anything else it cannot read.
std::optional<FaultRule> parseFaultLine(std::string_view line);

// One answered request. The log file holds line() for each, in order.
struct RequestRecord {
    std::string site;    // the site's name, or "proxy"
    std::string method;
    std::string host;    // the Host header as the client sent it (empty when absent)
    std::string path;    // the request target before '?', as sent: not decoded; the whole URL for the proxy
    std::string query;   // the raw query string without '?'
    int status = 0;      // the status sent
    std::uint64_t bytes = 0;  // body bytes actually sent
    // The order in which requests came in, from 1. Records are kept in the
    // order their answers ended (a stalled answer ends late): sorting by this
    // gives the order the client asked in.
    std::uint64_t arrival = 0;

    // "site method host path query status bytes", tab-separated, no newline.
    std::string line() const;
};

struct PostRecord {
    std::string site;
    std::string path;   // as sent
    std::string query;  // raw, without '?'
    std::string body;
    // The document kind: the root element of the body (for an encrypted post
    // its outer element; the decrypted document's root when the body has none).
    std::string kind;
    // The body, or for a query with "ec=256" the document decrypted from the
    // body's CDATA section (empty when it does not decrypt).
    std::string document;
};

// The name of the first element of an XML text (after a declaration,
// comments and a doctype); empty when there is none.
std::string rootElementOf(std::string_view xml);

// The file below `folder` named by a decoded URL path, or nullopt when the path
// is not a plain relative name (".." segments, empty segments, backslashes, NUL).
std::optional<std::filesystem::path> fileForUrlPath(const std::filesystem::path& folder,
                                                    std::string_view urlPath);

class SitesServer {
public:
    explicit SitesServer(Config config);
    ~SitesServer();  // stops
    SitesServer(const SitesServer&) = delete;
    SitesServer& operator=(const SitesServer&) = delete;

    // Binds every site (and the proxy) and starts serving. Throws
    // std::runtime_error when a folder is missing or a port cannot be bound.
    void start();
    // Stops every listener; stalled and slow answers are cut off at once.
    void stop();

    // The bound port of a site, or of the proxy under "proxy"; throws
    // std::out_of_range for a name that is neither.
    int port(const std::string& name) const;

    // Sets (replaces) the fault of a site's path; its times= count starts afresh.
    // A refuse fault takes effect for the whole site before this returns.
    void setFault(const std::string& site, const std::string& path, const Fault& fault);
    // Drops the faults set through the API (not those of the faults file);
    // refused sites listen again on their port before this returns.
    void clearFaults();

    std::vector<RequestRecord> requests() const;
    std::vector<PostRecord> posts() const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace sites

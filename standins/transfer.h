// What the download stand-ins share, whatever moves the bytes: an HTTP GET
// (libcurl on the simulated machine, WinINet in the Windows stand-ins) and a
// file target that writes a download under a temporary name and puts it in
// place only when it is complete. An interrupted transfer therefore never
// leaves a file that a later pass would count as already downloaded.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace standins {

// Where one download's bytes go. Paths are Windows paths ("C:\X\a.msu").
class FileTarget {
public:
    virtual ~FileTarget() = default;
    // Prepares a transfer to `destination`. False, with a reason, when its
    // folder is missing or the temporary file cannot be made.
    virtual bool begin(const std::string& destination, std::string& error) = 0;
    virtual bool write(const char* data, size_t size, std::string& error) = 0;
    // Puts the complete file in place, replacing an older one.
    virtual bool commit(std::string& error) = 0;
    // Throws the temporary file away; harmless after commit or before begin.
    virtual void abandon() = 0;
};

struct TransferResult {
    bool ok = false;       // a 2xx answer whose whole body arrived
    long httpStatus = 0;   // 0 when no HTTP answer came
    std::string reason;    // why it failed, in words ("HTTP 404 Not Found", "connection refused")
    uint64_t bytes = 0;    // body bytes received
    bool unresolved = false;  // the host name could not be resolved
    // The address the body came from, when redirects led away from the one asked for.
    std::string finalUrl;
};

// The words a failed transfer is reported in, the same on every transport,
// so that a pass logs the same text on Windows and on the simulated machine.
namespace reason {
std::string httpStatus(long status, const std::string& statusText);  // "HTTP 404 Not Found"
// "HTTP 302 Found, redirected to X": a redirect that was not followed (a POST's, or a status
// that is no redirect), or an error answer.
std::string redirected(long status, const std::string& statusText, const std::string& location);
// "more than 5 redirects, the last to X"
std::string tooManyRedirects(int most, const std::string& location);
// "redirect from https to http refused: X"
std::string redirectToHttp(const std::string& location);
// "the certificate of x does not chain to a trusted root"
std::string untrustedCertificate(const std::string& host);
// "the certificate of x names another host"
std::string certificateForAnotherHost(const std::string& host);
std::string notHttp(const std::string& url);                         // "not an http URL: x"
std::string hostNotFound(const std::string& host);                   // "host not found: x"
std::string cannotConnect(const std::string& host, int port);        // "cannot connect to x:80"
std::string interrupted(uint64_t received);  // "transfer interrupted after N bytes"
std::string stalled(unsigned seconds);       // "no data for N s"
std::string notWritten(const std::string& destination);  // "cannot write x"
std::string tooLarge(uint64_t most);                     // "more than N bytes: stopped"
}  // namespace reason

// Body bytes as they arrive; return false to abort the transfer.
using DataSink = std::function<bool(const char* data, size_t size)>;

class Transport {
public:
    virtual ~Transport() = default;
    // Sends the transfers of this transport through a named proxy ("host:port")
    // that asks for these credentials (none when the user is empty), instead
    // of connecting directly.
    virtual void useProxy(const std::string& server, const std::string& user, const std::string& password) = 0;
    // GET `url`. `cancel`, when given and set, aborts a running transfer.
    virtual TransferResult get(const std::string& url, const DataSink& onData,
                               const std::atomic<bool>* cancel) = 0;
    // POST `body` with the header "Content-Type: <contentType>" to `url`; the
    // answer's body goes to `onData`. The same outcomes as get: an answer
    // outside 2xx fails, and its body is not passed on.
    virtual TransferResult post(const std::string& url, const std::string& contentType, const std::string& body,
                                const DataSink& onData) = 0;
};

// The machine-side services a download or archive stand-in needs.
class StandinHost {
public:
    virtual ~StandinHost() = default;
    virtual std::unique_ptr<Transport> newTransport() = 0;
    virtual std::unique_ptr<FileTarget> newFileTarget() = 0;
    // Every folder of a Windows path, parents included. False when it cannot be made.
    virtual bool makeFolders(const std::string& windowsFolder) = 0;
    // A path that the C library can open for reading the file at `windowsPath`;
    // empty when there is no such file.
    virtual std::string readablePath(const std::string& windowsPath) = 0;
};

// GET `url` into `destination` through `target`: the body goes to the
// temporary file, which is committed only when the transfer succeeded and
// thrown away otherwise. `progress`, when given, counts body bytes as they
// arrive. `maxBytes` above 0: a body that passes it is stopped at once and
// thrown away ("more than N bytes").
TransferResult downloadToFile(Transport& transport, FileTarget& target, const std::string& url,
                              const std::string& destination, const std::atomic<bool>* cancel = nullptr,
                              std::atomic<uint64_t>* progress = nullptr, uint64_t maxBytes = 0);

}  // namespace standins

#include "standins/transfer.h"

namespace standins {

namespace reason {
std::string httpStatus(long status, const std::string& statusText) {
    return "HTTP " + std::to_string(status) + (statusText.empty() ? "" : " " + statusText);
}
std::string redirected(long status, const std::string& statusText, const std::string& location) {
    return httpStatus(status, statusText) + (location.empty() ? "" : ", redirected to " + location);
}
std::string tooManyRedirects(int most, const std::string& location) {
    return "more than " + std::to_string(most) + " redirects, the last to " + location;
}
std::string redirectToHttp(const std::string& location) { return "redirect from https to http refused: " + location; }
std::string untrustedCertificate(const std::string& host) {
    return "the certificate of " + host + " does not chain to a trusted root";
}
std::string certificateForAnotherHost(const std::string& host) {
    return "the certificate of " + host + " names another host";
}
std::string notHttp(const std::string& url) { return "not an http URL: " + url; }
std::string hostNotFound(const std::string& host) { return "host not found: " + host; }
std::string cannotConnect(const std::string& host, int port) {
    return "cannot connect to " + host + ":" + std::to_string(port);
}
std::string interrupted(uint64_t received) {
    return "transfer interrupted after " + std::to_string(received) + " bytes";
}
std::string stalled(unsigned seconds) { return "no data for " + std::to_string(seconds) + " s"; }
std::string notWritten(const std::string& destination) { return "cannot write " + destination; }
std::string tooLarge(uint64_t most) { return "more than " + std::to_string(most) + " bytes: stopped"; }
}  // namespace reason

TransferResult downloadToFile(Transport& transport, FileTarget& target, const std::string& url,
                              const std::string& destination, const std::atomic<bool>* cancel,
                              std::atomic<uint64_t>* progress, uint64_t maxBytes) {
    TransferResult result;
    std::string error;
    if (!target.begin(destination, error)) {
        result.reason = error;
        return result;
    }
    std::string writeError;
    result = transport.get(
        url,
        [&, received = uint64_t{0}](const char* data, size_t size) mutable {
            received += size;
            if (maxBytes > 0 && received > maxBytes) {
                writeError = reason::tooLarge(maxBytes);
                return false;
            }
            if (!target.write(data, size, writeError)) return false;
            if (progress) progress->fetch_add(size);
            return true;
        },
        cancel);
    if (!writeError.empty()) {
        result.ok = false;
        result.reason = writeError;
    }
    if (result.ok && !target.commit(error)) {
        result.ok = false;
        result.reason = error;
    }
    if (!result.ok) target.abandon();
    return result;
}

}  // namespace standins

#include "standins/com/win32_standin_host.h"

#include <windows.h>
#include <wininet.h>

#include <atomic>
#include <cctype>
#include <charconv>
#include <fstream>
#include <sstream>
#include <vector>

#include "platform/win32/handles.h"
#include "standins/redirects.h"

namespace standins::win32 {

namespace {

using platform::win32::UniqueFile;

struct InternetHandleTraits {
    static HINTERNET none() { return nullptr; }
    static void close(HINTERNET h) { InternetCloseHandle(h); }
};
using UniqueInternet = platform::win32::Unique<HINTERNET, InternetHandleTraits>;

std::string trim(const std::string& s) {
    size_t b = s.find_first_not_of(" \t\r\n");
    if (b == std::string::npos) return {};
    return s.substr(b, s.find_last_not_of(" \t\r\n") - b + 1);
}

std::string lower(std::string s) {
    for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

// The system's words for an error code, without the final line break.
std::string systemMessage(DWORD code, HMODULE from = nullptr) {
    char* text = nullptr;
    DWORD flags = FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_IGNORE_INSERTS |
                  (from ? FORMAT_MESSAGE_FROM_HMODULE : FORMAT_MESSAGE_FROM_SYSTEM);
    DWORD n = FormatMessageA(flags, from, code, 0, reinterpret_cast<LPSTR>(&text), 0, nullptr);
    std::string s = n && text ? trim(std::string(text, n)) : std::string();
    if (text) LocalFree(text);
    return s;
}

std::string windowsError(DWORD code) {
    std::string words = systemMessage(code);
    return words.empty() ? "system error " + std::to_string(code) : words + " (" + std::to_string(code) + ")";
}

// WinINet's failures in the words the download stand-ins report on every
// machine (standins::reason), so that a pass logs the same text everywhere.
std::string internetError(DWORD code, const HttpUrl& url, const std::string& endpoint, unsigned stallSeconds,
                          uint64_t received) {
    switch (code) {
    case ERROR_INTERNET_TIMEOUT: return reason::stalled(stallSeconds);
    case ERROR_INTERNET_NAME_NOT_RESOLVED: return reason::hostNotFound(url.host);
    case ERROR_INTERNET_CANNOT_CONNECT: return reason::cannotConnect(url.host, url.port);
    case ERROR_INTERNET_CONNECTION_ABORTED:
    case ERROR_INTERNET_CONNECTION_RESET:
        return received == 0 && code == ERROR_INTERNET_CONNECTION_RESET ? reason::cannotConnect(url.host, url.port)
                                                                        : reason::interrupted(received);
    case ERROR_INTERNET_OPERATION_CANCELLED: return "cancelled";
    case ERROR_INTERNET_SEC_CERT_CN_INVALID: return reason::certificateForAnotherHost(url.host);
    case ERROR_INTERNET_INVALID_CA:
    case ERROR_INTERNET_SEC_CERT_DATE_INVALID:
    case ERROR_INTERNET_SEC_INVALID_CERT:
    case ERROR_INTERNET_SEC_CERT_REVOKED:
        return reason::untrustedCertificate(url.host);
    default: break;
    }
    std::string words = systemMessage(code, GetModuleHandleA("wininet.dll"));
    if (words.empty()) words = systemMessage(code);
    return (words.empty() ? "WinINet error" : words) + " (" + std::to_string(code) + ") at " + endpoint;
}

// The value of a header of the answer as text; empty when it is not there.
std::string queryText(HINTERNET request, DWORD info) {
    std::string buf(256, '\0');
    for (;;) {
        DWORD size = static_cast<DWORD>(buf.size());
        DWORD index = 0;
        if (HttpQueryInfoA(request, info, buf.data(), &size, &index)) return trim(buf.substr(0, size));
        if (GetLastError() != ERROR_INSUFFICIENT_BUFFER || size <= buf.size()) return {};
        buf.resize(size + 1);
    }
}

std::string hostHeader(const HttpUrl& u) {
    std::string host = u.host.find(':') != std::string::npos ? "[" + u.host + "]" : u.host;
    const int defaultPort = u.scheme == "https" ? 443 : 80;
    return u.port == defaultPort ? host : host + ":" + std::to_string(u.port);
}

class WinInetTransport final : public Transport {
public:
    explicit WinInetTransport(NetworkSettings settings) : settings_(std::move(settings)) {}

    TransferResult get(const std::string& url, const DataSink& onData, const std::atomic<bool>* cancel) override {
        return followRedirects(url, [&](const std::string& hop, std::string& location) {
            return transfer(hop, nullptr, onData, cancel, &location);
        });
    }

    // A post's redirect is an answer of its own.
    TransferResult post(const std::string& url, const std::string& contentType, const std::string& body,
                        const DataSink& onData) override {
        const PostBody p{contentType, body};
        return transfer(url, &p, onData, nullptr, nullptr);
    }

    void useProxy(const std::string& server, const std::string& user, const std::string& password) override {
        proxyServer_ = server;
        proxyUser_ = user;
        proxyPassword_ = password;
    }

private:
    struct PostBody {
        const std::string& contentType;
        const std::string& data;
    };

    // One request; `location` gets a redirect's target.
    TransferResult transfer(const std::string& url, const PostBody* post, const DataSink& onData,
                            const std::atomic<bool>* cancel, std::string* location) {
        TransferResult r;
        if (!settings_.error.empty()) {
            r.reason = settings_.error;
            return r;
        }
        auto parsed = parseHttpUrl(url);
        if (!parsed) {
            r.reason = reason::notHttp(url);
            return r;
        }
        Endpoint to{parsed->host, parsed->port};
        std::string proxy;  // "http=address:port" of a named proxy, which reaches the host itself
        if (!proxyServer_.empty()) {
            const size_t colon = proxyServer_.rfind(':');
            Endpoint at{proxyServer_.substr(0, colon),
                        colon == std::string::npos ? 80 : std::atoi(proxyServer_.c_str() + colon + 1)};
            if (settings_.mapped) {
                auto mapped = settings_.map.resolve(at.address, at.port);
                if (!mapped) {
                    r.reason = reason::cannotConnect(at.address, at.port);
                    return r;
                }
                at = *mapped;
            }
            proxy = "http=" + at.address + ":" + std::to_string(at.port);
        } else if (settings_.mapped) {
            auto mapped = settings_.map.resolve(parsed->host, parsed->port);
            if (!mapped) {
                // Nothing outside the machine is reachable: an unmapped host is unknown.
                r.reason = reason::hostNotFound(parsed->host);
                r.unresolved = true;
                return r;
            }
            to = *mapped;
        } else if (!isLoopbackAddress(parsed->host)) {
            // Without a map a URL is used as it is, but never one that leaves the machine.
            r.reason = reason::hostNotFound(parsed->host);
            r.unresolved = true;
            return r;
        }
        const std::string endpoint = to.address + ":" + std::to_string(to.port);
        url_ = *parsed;
        DWORD stallMs = settings_.stallSeconds * 1000;

        // Direct, or through the proxy the caller named: the computer's own
        // proxy setting is never asked.
        UniqueInternet session(proxy.empty()
                                   ? InternetOpenA("KPMStandins", INTERNET_OPEN_TYPE_DIRECT, nullptr, nullptr, 0)
                                   : InternetOpenA("KPMStandins", INTERNET_OPEN_TYPE_PROXY, proxy.c_str(), nullptr, 0));
        if (!session) return failed(r, GetLastError(), endpoint);
        DWORD connectMs = 10000;
        InternetSetOptionA(session.get(), INTERNET_OPTION_CONNECT_TIMEOUT, &connectMs, sizeof connectMs);
        InternetSetOptionA(session.get(), INTERNET_OPTION_RECEIVE_TIMEOUT, &stallMs,
                           sizeof stallMs);
        InternetSetOptionA(session.get(), INTERNET_OPTION_SEND_TIMEOUT, &stallMs,
                           sizeof stallMs);

        UniqueInternet connection(InternetConnectA(session.get(), to.address.c_str(),
                                                   static_cast<INTERNET_PORT>(to.port), nullptr, nullptr,
                                                   INTERNET_SERVICE_HTTP, 0, 0));
        if (!connection) return failed(r, GetLastError(), endpoint);

        // Always from the server, never into the cache; redirects are followed
        // hop by hop (get), each hop's host through the map.
        DWORD flags = INTERNET_FLAG_RELOAD | INTERNET_FLAG_NO_CACHE_WRITE | INTERNET_FLAG_NO_AUTO_REDIRECT |
                      INTERNET_FLAG_NO_COOKIES | INTERNET_FLAG_NO_UI | INTERNET_FLAG_PRAGMA_NOCACHE;
        if (parsed->scheme == "https") flags |= INTERNET_FLAG_SECURE;
        const char* accept[] = {"*/*", nullptr};
        UniqueInternet request(HttpOpenRequestA(connection.get(), post ? "POST" : "GET", parsed->target.c_str(),
                                                nullptr, nullptr, accept, flags, 0));
        if (!request) return failed(r, GetLastError(), endpoint);
        InternetSetOptionA(request.get(), INTERNET_OPTION_RECEIVE_TIMEOUT, &stallMs,
                           sizeof stallMs);

        if (!proxy.empty() && !proxyUser_.empty()) {
            InternetSetOptionA(request.get(), INTERNET_OPTION_PROXY_USERNAME, const_cast<char*>(proxyUser_.c_str()),
                               static_cast<DWORD>(proxyUser_.size()));
            InternetSetOptionA(request.get(), INTERNET_OPTION_PROXY_PASSWORD, const_cast<char*>(proxyPassword_.c_str()),
                               static_cast<DWORD>(proxyPassword_.size()));
        }
        // A mapped host is reached at its endpoint but still named in the request.
        if (proxy.empty() && (to.address != parsed->host || to.port != parsed->port)) {
            const std::string header = "Host: " + hostHeader(*parsed) + "\r\n";
            HttpAddRequestHeadersA(request.get(), header.c_str(), static_cast<DWORD>(header.size()),
                                   HTTP_ADDREQ_FLAG_ADD | HTTP_ADDREQ_FLAG_REPLACE);
        }
        if (cancel && cancel->load()) return failed(r, ERROR_INTERNET_OPERATION_CANCELLED, endpoint);
        std::string headers;
        if (post) headers = "Content-Type: " + post->contentType + "\r\n";
        void* body = post ? const_cast<char*>(post->data.data()) : nullptr;
        const DWORD bodySize = post ? static_cast<DWORD>(post->data.size()) : 0;
        if (!HttpSendRequestA(request.get(), headers.empty() ? nullptr : headers.c_str(),
                              static_cast<DWORD>(headers.size()), body, bodySize))
            return failed(r, GetLastError(), endpoint);

        DWORD status = 0, size = sizeof status, index = 0;
        if (!HttpQueryInfoA(request.get(), HTTP_QUERY_STATUS_CODE | HTTP_QUERY_FLAG_NUMBER, &status, &size, &index))
            return failed(r, GetLastError(), endpoint);
        r.httpStatus = static_cast<long>(status);
        if (status < 200 || status > 299) {
            // An error page is no file: its body is not read.
            const std::string text = queryText(request.get(), HTTP_QUERY_STATUS_TEXT);
            const std::string redirect =
                status >= 300 && status <= 399 ? queryText(request.get(), HTTP_QUERY_LOCATION) : "";
            if (location) *location = redirect;
            r.reason = reason::redirected(static_cast<long>(status), text, redirect);
            return r;
        }

        uint64_t expected = 0;
        const std::string length = queryText(request.get(), HTTP_QUERY_CONTENT_LENGTH);
        const bool lengthKnown =
            !length.empty() &&
            std::from_chars(length.data(), length.data() + length.size(), expected).ec == std::errc();

        std::vector<char> buf(64 * 1024);
        for (;;) {
            if (cancel && cancel->load()) return failed(r, ERROR_INTERNET_OPERATION_CANCELLED, endpoint);
            DWORD got = 0;
            if (!InternetReadFile(request.get(), buf.data(), static_cast<DWORD>(buf.size()), &got))
                return failed(r, GetLastError(), endpoint);
            if (got == 0) break;
            r.bytes += got;
            if (!onData(buf.data(), got)) {
                r.reason = reason::notWritten("the file");  // the target says which
                return r;
            }
        }
        // WinINet ends a body cut short as if it were complete: the length the
        // server announced tells them apart.
        if (lengthKnown && r.bytes != expected) {
            r.reason = reason::interrupted(r.bytes);
            return r;
        }
        r.ok = true;
        return r;
    }

    TransferResult& failed(TransferResult& r, DWORD code, const std::string& endpoint) const {
        r.ok = false;
        r.reason = internetError(code, url_, endpoint, settings_.stallSeconds, r.bytes);
        r.unresolved = code == ERROR_INTERNET_NAME_NOT_RESOLVED;
        return r;
    }

    NetworkSettings settings_;
    HttpUrl url_;  // the URL of the transfer under way, for the failure's words
    std::string proxyServer_, proxyUser_, proxyPassword_;
};

// Written as "<destination>.~kpm<pid>-<n>.part" beside the destination and
// renamed over it when complete: the rename stays on one volume.
class Win32FileTarget final : public FileTarget {
public:
    ~Win32FileTarget() override { abandon(); }

    bool begin(const std::string& destination, std::string& error) override {
        abandon();
        const size_t slash = destination.find_last_of("\\/");
        const std::string folder = slash == std::string::npos ? std::string() : destination.substr(0, slash);
        const DWORD attributes = folder.empty() ? INVALID_FILE_ATTRIBUTES
                                                : GetFileAttributesA(folder.size() == 2 ? (folder + "\\").c_str()
                                                                                        : folder.c_str());
        if (attributes == INVALID_FILE_ATTRIBUTES || !(attributes & FILE_ATTRIBUTE_DIRECTORY)) {
            error = "the folder of " + destination + " does not exist";
            return false;
        }
        static std::atomic<unsigned long> counter{0};
        temp_ = destination + ".~kpm" + std::to_string(GetCurrentProcessId()) + "-" + std::to_string(++counter) +
                ".part";
        file_.reset(CreateFileA(temp_.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL,
                                nullptr));
        if (!file_) {
            error = "cannot create " + temp_ + ": " + windowsError(GetLastError());
            temp_.clear();
            return false;
        }
        destination_ = destination;
        return true;
    }

    bool write(const char* data, size_t size, std::string& error) override {
        while (size > 0) {
            const DWORD chunk = static_cast<DWORD>(size < (1u << 30) ? size : (1u << 30));
            DWORD written = 0;
            if (!file_ || !WriteFile(file_.get(), data, chunk, &written, nullptr) || written == 0) {
                error = "cannot write " + destination_ + ": " + windowsError(GetLastError());
                return false;
            }
            data += written;
            size -= written;
        }
        return true;
    }

    bool commit(std::string& error) override {
        if (!file_) {
            error = "nothing to put in place";
            return false;
        }
        if (!CloseHandle(file_.release())) {
            error = "cannot write " + destination_ + ": " + windowsError(GetLastError());
            return false;
        }
        if (!MoveFileExA(temp_.c_str(), destination_.c_str(), MOVEFILE_REPLACE_EXISTING)) {
            error = "cannot put " + destination_ + " in place: " + windowsError(GetLastError());
            return false;
        }
        temp_.clear();
        return true;
    }

    void abandon() override {
        file_.reset();
        if (!temp_.empty()) DeleteFileA(temp_.c_str());
        temp_.clear();
    }

private:
    UniqueFile file_;
    std::string temp_, destination_;
};

bool isFolder(const std::string& path) {
    const DWORD a = GetFileAttributesA(path.c_str());
    return a != INVALID_FILE_ATTRIBUTES && (a & FILE_ATTRIBUTE_DIRECTORY);
}

class Win32StandinHost final : public StandinHost {
public:
    // Without settings: network.ini is read for each transport, so that a
    // change to it counts from the next download on.
    Win32StandinHost() = default;
    explicit Win32StandinHost(const NetworkSettings& settings) : fixed_(true), settings_(settings) {}

    std::unique_ptr<Transport> newTransport() override {
        return std::make_unique<WinInetTransport>(
            fixed_ ? settings_ : readNetworkSettings(standinsFolder() + "\\network.ini"));
    }
    std::unique_ptr<FileTarget> newFileTarget() override { return std::make_unique<Win32FileTarget>(); }

    bool makeFolders(const std::string& windowsFolder) override {
        std::string f = windowsFolder;
        for (char& c : f)
            if (c == '/') c = '\\';
        while (f.size() > 3 && f.back() == '\\') f.pop_back();
        if (f.empty()) return false;
        // The root ("C:\", "\\server\share\") is never created, only what follows it.
        size_t start = 0;
        if (f.size() >= 2 && f[1] == ':') {
            start = 3;
        } else if (f.rfind("\\\\", 0) == 0) {
            size_t share = f.find('\\', 2);
            start = share == std::string::npos ? f.size() : f.find('\\', share + 1);
            if (start == std::string::npos) start = f.size();
        }
        for (size_t at = f.find('\\', start); ; at = f.find('\\', at + 1)) {
            const std::string prefix = at == std::string::npos ? f : f.substr(0, at);
            if (prefix.size() > start && !isFolder(prefix)) CreateDirectoryA(prefix.c_str(), nullptr);
            if (at == std::string::npos) break;
        }
        return isFolder(f);
    }

    std::string readablePath(const std::string& windowsPath) override {
        const DWORD a = GetFileAttributesA(windowsPath.c_str());
        if (a == INVALID_FILE_ATTRIBUTES || (a & FILE_ATTRIBUTE_DIRECTORY)) return {};
        return windowsPath;
    }

private:
    bool fixed_ = false;
    NetworkSettings settings_;
};

}  // namespace

std::string standinsFolder() {
    char dir[MAX_PATH] = "";
    DWORD n = GetEnvironmentVariableA("KPM_STANDINS_DIR", dir, sizeof dir);
    std::string d = n > 0 && n < sizeof dir ? std::string(dir, n) : "C:\\KPMStandins";
    while (d.size() > 3 && (d.back() == '\\' || d.back() == '/')) d.pop_back();
    return d;
}

NetworkSettings parseNetworkSettings(const std::string& iniText, const std::string& fileName) {
    NetworkSettings s;
    std::istringstream in(iniText);
    std::string line, section;
    int number = 0;
    while (std::getline(in, line)) {
        ++number;
        line = trim(line);
        if (line.empty() || line[0] == ';' || line[0] == '#') continue;
        const std::string where = fileName + " line " + std::to_string(number) + ": ";
        if (line[0] == '[') {
            const size_t close = line.find(']');
            section = lower(trim(line.substr(1, close == std::string::npos ? std::string::npos : close - 1)));
            if (section == "network") s.mapped = true;
            continue;
        }
        const size_t eq = line.find('=');
        if (eq == std::string::npos) continue;
        const std::string key = trim(line.substr(0, eq)), value = trim(line.substr(eq + 1));
        std::string error;
        if (section == "network") {
            if (!s.map.add(key, value, error) && s.error.empty()) s.error = where + "[Network] " + error;
        } else if (section == "downloads" && lower(key) == "stallseconds") {
            unsigned v = 0;
            auto [end, ec] = std::from_chars(value.data(), value.data() + value.size(), v);
            if (ec != std::errc() || end != value.data() + value.size() || v == 0 || v > 3600) {
                if (s.error.empty()) s.error = where + "[Downloads] StallSeconds must be 1 to 3600";
            } else {
                s.stallSeconds = v;
            }
        }
    }
    return s;
}

NetworkSettings readNetworkSettings(const std::string& iniPath) {
    std::ifstream in(iniPath, std::ios::binary);
    if (!in) return {};
    std::ostringstream text;
    text << in.rdbuf();
    return parseNetworkSettings(text.str(), iniPath);
}

std::shared_ptr<StandinHost> newWin32StandinHost() { return std::make_shared<Win32StandinHost>(); }

std::shared_ptr<StandinHost> newWin32StandinHost(const NetworkSettings& settings) {
    return std::make_shared<Win32StandinHost>(settings);
}

}  // namespace standins::win32

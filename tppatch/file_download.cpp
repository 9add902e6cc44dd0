#include "tppatch/file_download.h"

#include <cctype>
#include <exception>

#include "config/agent_settings.h"
#include "config/ini.h"
#include "driver/error_trap.h"
#include "driver/main.h"
#include "driver/run_state.h"
#include "log/w3c_log.h"
#include "mspatch/download_channels.h"
#include "platform/host.h"
#include "support/support_files.h"
#include "tppatch/log_text.h"
#include "tppatch/list_signature.h"
#include "tppatch/text_case.h"

namespace kpm {

namespace {

constexpr const char* kModule = "modTPMDwn";
constexpr const char* kProc = "fncDownloadTPMFile";

void log(const char* type, const std::string& message, const std::string& v1 = "", const std::string& v2 = "",
         const std::string& v3 = "") {
    WriteW3CLog(kModule, kProc, type, message, v1, v2, v3);
}

// What an installer is checked against: "N bytes, MD5 m[, SHA-256 s]".
std::string checksText(const TPExpectedFile& e) {
    return std::to_string(e.size) + " bytes, MD5 " + e.md5 + (e.sha256.empty() ? "" : ", SHA-256 " + e.sha256);
}

TPDownloadResult failed(std::string what, std::string detail) {
    TPDownloadResult r;
    r.ErrorText1 = std::move(what);
    r.ErrorText2 = std::move(detail);
    return r;
}

// A file name as a URL path segment: everything but unreserved characters
// escaped, the bytes of its UTF-8 as web servers read an address ("É" is
// %C3%89 whatever the computer's code page).
std::string urlEncoded(const std::string& name) {
    static const char kHex[] = "0123456789ABCDEF";
    std::string out;
    for (unsigned char c : Utf8Text(name)) {
        if (std::isalnum(c) || c == '-' || c == '.' || c == '_' || c == '~') {
            out += static_cast<char>(c);
        } else {
            out += '%';
            out += kHex[c >> 4];
            out += kHex[c & 15];
        }
    }
    return out;
}

std::string gatewayUrl(const std::string& fileName) {
    std::string gateway = Trim(agentSettings.PMDownloadURL);
    if (gateway.empty()) return {};
    if (gateway.back() != '/') gateway += '/';
    return gateway + urlEncoded(fileName);
}

// One copy of the product list, as it arrived from `source`: unpacked when it
// is an archive, and then taken only when its signature and freshness hold.
TPDownloadResult takeListCopy(const std::string& url, const std::string& destination, const std::string& folder,
                              const std::string& source) {
    log("INFO", "Download Complete..File copied", destination);
    subWriteDownloadURL(url);
    TPDownloadResult r;
    r.FilePath = destination;
    if (const std::string name = LCase(destination); name.size() > 4 && name.ends_with(".zip")) {
        const std::string into = folder + "\\ZipComp";
        // Nothing of a copy refused before may mix with this one.
        resumeNext([&] { platform::files().deleteFile(into + "\\*.*"); });
        platform::files().makeSureDirectoryPathExists(into + "\\");
        std::string why;
        if (!fncUnzipArchive(destination, into, why)) {
            log("ERROR", "Archive could not be unpacked", destination, LogText(why));
            return failed("Archive could not be unpacked", why);
        }
        r.Extracted = true;
        std::string accepted;
        why = CheckProductList(into, accepted);
        if (!why.empty()) {
            log("ERROR", "Product list refused: nothing of it is used", source, LogText(why));
            resumeNext([&] { platform::files().deleteFile(into + "\\*.*"); });
            return failed("Product list refused", why);
        }
        log("INFO", "Product list signature verified", source, accepted);
    }
    r.Success = true;
    return r;
}

// The product list: through the gateway's download library first, then the
// URL itself with the download object. A LAN host can delay the list, never
// replace it: a gateway copy that is refused sends the pass to the URL.
TPDownloadResult fetchList(const std::string& url, const std::string& fileName, const std::string& folder) {
    const std::string destination = folder + "\\" + fileName;
    const std::string gateway = gatewayUrl(fileName);
    if (!gateway.empty()) {
        log("INFO", "Downloading file through GateWay", gateway);
        const std::string status = DownloadURL_File(gateway, destination);
        if (UCase(Trim(status)) == "SUCCESS") {
            // Whatever the gateway's copy does, the URL's copy is still tried.
            TPDownloadResult r;
            try {
                r = takeListCopy(url, destination, folder, gateway);
            } catch (const std::exception& e) {
                log("ERROR", "Product list refused: nothing of it is used", gateway, LogText(errFrom(e).description));
            }
            if (r.Success) return r;
        } else {
            log("ERROR", "Download Failed through GateWay", gateway, status);
        }
    }
    log("INFO", "Downloading file from URL", url);
    if (!fncDownloadFile(url, destination)) return failed("Unable to download " + fileName, url);
    return takeListCopy(url, destination, folder, url);
}

// A vendor's error or login page answered with 200: what a few hundred bytes
// of HTML instead of an installer look like.
bool looksLikeHtml(const std::string& path, uint64_t size) {
    if (size > (1u << 20)) return false;
    std::string head = platform::files().readAll(path).substr(0, 512);
    size_t at = head.rfind("\xEF\xBB\xBF", 0) == 0 ? 3 : 0;
    while (at < head.size() && std::isspace(static_cast<unsigned char>(head[at]))) ++at;
    head = LCase(head.substr(at));
    return head.rfind("<!doctype html", 0) == 0 || head.rfind("<html", 0) == 0 || head.rfind("<head", 0) == 0 ||
           head.rfind("<body", 0) == 0;
}

// One channel's file in the staging name, checked: renamed into place when it
// matches, deleted when it does not.
bool keepIfVerified(const std::string& staged, const std::string& target, const TPExpectedFile& e,
                    const std::string& source) {
    const std::string arrived = fncCompareInstaller(staged, e);
    if (!arrived.empty()) {
        log("ERROR", "Installer does not match the product list: deleted", source, ExpectedText(e), arrived);
        subDeleteFile(staged);
        return false;
    }
    platform::files().moveFile(staged, target);
    // Windows may take a name for another file's (a short 8.3 alias, a case
    // it folds): what the name now opens must be what was verified.
    const std::string under = fncCompareInstaller(target, e);
    if (!under.empty()) {
        log("ERROR", "Installer under its name is not the file verified: deleted", target, ExpectedText(e), under);
        subDeleteFile(target);
        return false;
    }
    return true;
}

// An installer: staged under the expected MD5 (a name without the
// installer's extension, which nothing runs and the clean-up removes if a
// pass dies half-way), fetched through the gateway's library, then from the
// vendor through the agent's proxy, and verified before it takes its name.
TPDownloadResult fetchVerified(const std::string& url, const std::string& folder, const TPExpectedFile& e) {
    const std::string target = folder + "\\" + e.name;
    const std::string staged = folder + "\\" + e.md5 + ".partial";
    resumeNext([&] { subDeleteFile(staged); });
    TPDownloadResult r;
    const std::string gateway = gatewayUrl(e.name);
    if (gateway.empty()) {
        log("INFO", "Gateway not configured for the installer download", e.name);
    } else {
        log("INFO", "Downloading installer through GateWay", gateway);
        const std::string status = DownloadURL_File(gateway, staged);
        if (UCase(Trim(status)) != "SUCCESS") log("ERROR", "Download Failed through GateWay", gateway, status);
        else if (keepIfVerified(staged, target, e, gateway)) r.Channel = "gateway";
    }
    if (r.Channel.empty() && e.gatewayOnly) {
        log("INFO", "Configured to download installers through Gateway only: not from the vendor", url);
        return failed("the gateway is the only channel and it has no verified file", url);
    }
    if (r.Channel.empty()) {
        const AgentSettings& a = agentSettings;
        const std::string credentials = a.ProxyUserName.empty() ? "" : a.ProxyUserName + ":" + a.ProxyPassword;
        log("INFO", "Downloading installer from the vendor", url, a.ProxyServer.empty() ? "" : "through " + a.ProxyServer);
        JobFailure failure;
        // The download object stops a body that passes the list's size.
        if (!JobDownloadFile(url, staged, a.ProxyServer, credentials, failure, e.size)) {
            log("ERROR", "Download Failed from the vendor", url, failure.status, LogText(failure.reason));
            return failed("no channel brought it", url);
        }
        if (!keepIfVerified(staged, target, e, url)) return failed("what arrived did not match the product list", url);
        r.Channel = "vendor";
        r.FinalUrl = failure.url;  // where redirects led, after a success
    }
    log("INFO", "Installer verified", target, checksText(e), r.FinalUrl.empty() ? "" : "from " + LogText(r.FinalUrl));
    subWriteDownloadURL(target);
    r.FilePath = target;
    r.Success = true;
    return r;
}

}  // namespace

std::string ExpectedText(const TPExpectedFile& e) { return "expected " + checksText(e); }

std::string fncCompareInstaller(const std::string& path, const TPExpectedFile& e) {
    // Size first, then the MD5 through the maker's library, then the SHA-256:
    // a checksum that cannot be computed is a mismatch, as nothing unverified is kept.
    const uint64_t size = platform::files().fileSize(path);
    const std::string md5 = LCase(Trim(fncCheckSum(path)));
    std::string sha256;
    if (!e.sha256.empty()) resumeNext([&] { sha256 = platform::files().sha256(path); });
    if (size == e.size && md5 == e.md5 && (e.sha256.empty() || sha256 == e.sha256)) return {};
    std::string arrived = "arrived " + std::to_string(size) + " bytes, MD5 " + (md5.empty() ? "not computed" : md5);
    if (!e.sha256.empty()) arrived += ", SHA-256 " + (sha256.empty() ? "not computed" : sha256);
    if (size != e.size && looksLikeHtml(path, size)) arrived += ": an HTML page, not the installer";
    return arrived;
}

TPDownloadResult fncDownloadTPMFile(const std::string& url, const std::string& folder, const TPExpectedFile* expected) {
    try {
        const std::string fileName = expected ? expected->name : FileNameFromURL(url);
        if (fileName.empty() || !IsSafeFileName(fileName)) {
            LogUnsafeFileName(kModule, kProc, fileName, url);
            return failed("File name refused", url);
        }
        platform::files().makeSureDirectoryPathExists(folder + "\\");
        if (expected) return fetchVerified(url, folder, *expected);

        return fetchList(url, fileName, folder);
    } catch (const std::exception& e) {
        ErrInfo err = errFrom(e);
        logTrap(kModule, kProc, "In fncDownloadTPMFile.", err);
        appendErrorTrail(kProc, err);
        return failed(std::to_string(err.number), err.description);
    }
}

}  // namespace kpm

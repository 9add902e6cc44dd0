#include "thirdparty/file_download.h"

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

namespace kpm {

namespace {

constexpr const char* kModule = "modTPMDwn";
constexpr const char* kProc = "fncDownloadTPMFile";

void log(const char* type, const std::string& message, const std::string& v1 = "", const std::string& v2 = "",
         const std::string& v3 = "") {
    WriteW3CLog(kModule, kProc, type, message, v1, v2, v3);
}

TPDownloadResult failed(std::string what, std::string detail) {
    TPDownloadResult r;
    r.ErrorText1 = std::move(what);
    r.ErrorText2 = std::move(detail);
    return r;
}

// Through the gateway's download library first, then the URL itself with the download object.
bool fetch(const std::string& url, const std::string& fileName, const std::string& destination) {
    std::string gateway = Trim(agentSettings.PMDownloadURL);
    if (!gateway.empty()) {
        if (gateway.back() != '/') gateway += '/';
        gateway += fileName;
        log("INFO", "Downloading file through GateWay", gateway);
        const std::string status = DownloadURL_File(gateway, destination);
        if (UCase(Trim(status)) == "SUCCESS") return true;
        log("ERROR", "Download Failed through GateWay", gateway, status);
    }
    log("INFO", "Downloading file from URL", url);
    return fncDownloadFile(url, destination);
}

}  // namespace

TPDownloadResult fncDownloadTPMFile(const std::string& url, const std::string& folder, const std::string& md5) {
    try {
        const std::string fileName = FileNameFromURL(url);
        if (!IsSafeFileName(fileName)) {
            LogUnsafeFileName(kModule, kProc, fileName, url);
            return failed("File name refused", url);
        }
        platform::files().makeSureDirectoryPathExists(folder + "\\");
        const std::string destination = folder + "\\" + fileName;
        if (!fetch(url, fileName, destination)) return failed("Unable to download " + fileName, url);
        log("INFO", "Download Complete..File copied", destination);
        subWriteDownloadURL(url);

        if (!md5.empty()) {
            const std::string sum = fncCheckSum(destination);
            if (UCase(Trim(sum)) != UCase(Trim(md5))) {
                log("ERROR", "Checksum does not match, file deleted", destination, md5, sum);
                subDeleteFile(destination);
                return failed("Checksum does not match", destination);
            }
        }

        TPDownloadResult r;
        r.FilePath = destination;
        if (LCase(fileName).size() > 4 && LCase(fileName).ends_with(".zip")) {
            const std::string into = folder + "\\ZipComp";
            platform::files().makeSureDirectoryPathExists(into + "\\");
            std::string why;
            if (!fncUnzipArchive(destination, into, why)) {
                log("ERROR", "Archive could not be unpacked", destination, why);
                return failed("Archive could not be unpacked", why);
            }
            r.Extracted = true;
        }
        r.Success = true;
        return r;
    } catch (const std::exception& e) {
        ErrInfo err = errFrom(e);
        logTrap(kModule, kProc, "In fncDownloadTPMFile.", err);
        appendErrorTrail(kProc, err);
        return failed(std::to_string(err.number), err.description);
    }
}

}  // namespace kpm

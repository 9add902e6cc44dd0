#include "mspatch/download_channels.h"

#include <algorithm>
#include <exception>

#include "config/agent_settings.h"
#include "config/ini.h"
#include "driver/error_trap.h"
#include "driver/run_state.h"
#include "log/w3c_log.h"
#include "mspatch/download_state.h"
#include "platform/host.h"

namespace kpm {

namespace {

constexpr const char* kModule = "ModComman";

void info(const char* proc, const std::string& message, const std::string& v1 = "",
          const std::string& v2 = "") {
    WriteW3CLog(kModule, proc, "INFO", message, v1, v2);
}

void error(const char* proc, const std::string& message, const std::string& v1 = "",
           const std::string& v2 = "", const std::string& v3 = "") {
    WriteW3CLog(kModule, proc, "ERROR", message, v1, v2, v3);
}

// The convention's handler: an ERROR entry and the error trail.
void trap(const char* proc, const std::exception& e) {
    ErrInfo err = errFrom(e);
    logTrap(kModule, proc, "In " + std::string(proc) + ".", err);
    appendErrorTrail(proc, err);
}

// "Download", "PMDownload" of the agent INI, read afresh each time.
std::string gatewayBase() {
    return Trim(fncReadAgentIni("Download", "PMDownload", agentSettings.InstallPath + "VORNMobile.INI"));
}

void recordSuccess(const char* proc, const std::string& destination, const char* channel) {
    downloadCounters.LastDownloadedFile = destination;
    info(proc, "Download Complete..File copied", destination);
    downloadCounters.LastDownloadChannel = channel;
    runState.DownloadMode = channel;
}

}  // namespace

std::string PatchManagementFolder() { return agentSettings.InstallPath + "BaseComponents\\PatchManagement\\"; }
std::string ComponentsFolder() { return PatchManagementFolder() + "Components\\"; }

std::string FileNameFromURL(const std::string& url) {
    size_t slash = url.find_last_of('/');
    return slash == std::string::npos ? url : url.substr(slash + 1);
}

bool IsSafeFileName(const std::string& name) {
    return name.find_first_of("\\/:") == std::string::npos && name.find("..") == std::string::npos;
}

void LogUnsafeFileName(const std::string& module, const std::string& proc, const std::string& name,
                       const std::string& source) {
    WriteW3CLog(module, proc, "ERROR",
                name.empty() ? "File name refused: the URL names no file"
                             : "File name refused: it would be written outside its folder",
                name, source);
}

bool JobDownloadFile(const std::string& url, const std::string& destination, const std::string& proxy,
                     const std::string& credentials, JobFailure& failure, uint64_t maxBytes) {
    platform::Object job = platform::automation().createObject("kDwnJob.JobDownload");
    if (maxBytes > 0) resumeNext([&] { job.put("MaxBytes", static_cast<int64_t>(maxBytes)); });
    platform::Variant u(url), spare1(proxy), spare2(credentials), dest(destination), status(""), reason(""),
        failedUrl("");
    bool ok = job.call("JobDownload", platform::ByRef{&u}, platform::ByRef{&spare1}, platform::ByRef{&spare2},
                       platform::ByRef{&dest}, platform::ByRef{&status}, platform::ByRef{&reason},
                       platform::ByRef{&failedUrl})
                  .toBool();
    job.release();
    failure = {status.toString(), reason.toString(), failedUrl.toString()};
    return ok;
}

bool fncDownloadFile(const std::string& url, const std::string& destination) {
    try {
        JobFailure failure;
        if (JobDownloadFile(url, destination, "", "", failure)) return true;
        WriteW3CLog(kModule, "fncDownloadFile", "ERROR", "Downloading file from " + url, failure.status,
                    failure.reason, failure.url);
        return false;
    } catch (const std::exception& e) {
        trap("fncDownloadFile", e);
        return false;
    }
}

bool DLoadPchFromMicrosoft(const std::string& url) {
    const char* proc = "DLoadPchFromMicrosoft";
    try {
        if (url.find('/') == std::string::npos) {
            error(proc, "Invalid URL", url);
            return false;
        }
        const std::string fileName = FileNameFromURL(url);
        if (!IsSafeFileName(fileName)) {
            LogUnsafeFileName(kModule, proc, fileName, url);
            return false;
        }
        info(proc, "Downloading Patch From Microsoft.");
        const std::string trimmed = Trim(fileName);
        const std::string destination =
            (trimmed == "KDowFile.dll" || trimmed == "KGnMD5.dll" ? PatchManagementFolder() : ComponentsFolder()) +
            fileName;
        info(proc, "URL", url);
        info(proc, "File name", fileName);
        // The last of three attempts when the gateway went first; the wording stays.
        info(proc, "Attempt", "Last");
        if (!fncDownloadFile(url, destination)) {
            error(proc, "Download Failed 3 times , Aborting download now.");
            return false;
        }
        recordSuccess(proc, destination, "Online");
        return true;
    } catch (const std::exception& e) {
        trap(proc, e);
        return false;
    }
}

bool DloadPthOnGateWay(const std::string& url) {
    const char* proc = "DloadPthOnGateWay";
    try {
        downloadCounters.GatewayTried = true;
        if (url.find('/') == std::string::npos) {
            info(proc, "Invalid URL.", url);
            return false;
        }
        const std::string fileName = FileNameFromURL(url);
        if (!IsSafeFileName(fileName)) {
            LogUnsafeFileName(kModule, proc, fileName, url);
            return false;
        }
        info(proc, "Downloading Patch From GateWay.");
        const std::string destination =
            (Trim(fileName) == "KDowFile.dll" ? PatchManagementFolder() : ComponentsFolder()) + fileName;
        std::string base = gatewayBase();
        if (base.empty()) {
            info(proc, "Gateway not configured for Patch Download");
            return false;
        }
        if (base.back() != '/') base += '/';
        const std::string gatewayUrl = base + fileName;
        info(proc, "URL", gatewayUrl);
        info(proc, "File name", fileName);
        for (int attempt = 1; attempt <= 2; ++attempt) {
            info(proc, "Attempt", std::to_string(attempt));
            info(proc, "Trying to Download through DownloadURL_FIle", gatewayUrl);
            downloadCounters.DownloadURLStatus = DownloadURL_File(gatewayUrl, destination);
            if (UCase(Trim(downloadCounters.DownloadURLStatus)) == "SUCCESS") {
                recordSuccess(proc, destination, "Offline");
                return true;
            }
            error(proc, "Download Failed through DownloadURL_FIle", gatewayUrl, downloadCounters.DownloadURLStatus);
            info(proc, "Trying to Download Again", gatewayUrl, downloadCounters.DownloadURLStatus);
        }
        // This one entry carries the other channel's name.
        info("DLoadPchFromMicrosoft", "Attempt", "Last");
        if (fncDownloadFile(gatewayUrl, destination)) {
            recordSuccess(proc, destination, "Offline");
            return true;
        }
        error(proc, "Download Failed 3 times , Aborting download now.");
        return false;
    } catch (const std::exception& e) {
        trap(proc, e);
        return false;
    }
}

std::string DownloadURL_File(const std::string& url, const std::string& destination) {
    const char* proc = "DownloadURL_File";
    try {
        int32_t job = platform::maker().asyncDownloadFile(url, destination);
        if (job <= 0) return "Failed";
        int64_t lastBytes = 0;
        int idle = 0;
        for (int polled = 0; polled < kDownloadPollLimitSeconds; ++polled) {
            platform::clock().sleep(1000);
            int64_t bytes = 0;
            int32_t status = platform::maker().getDownloadFinalStatus(job, bytes);
            if (status == platform::kdowfile::Completed) return "Success";
            if (status != platform::kdowfile::Running) return "Failed";
            if (bytes != lastBytes) {
                lastBytes = bytes;
                idle = 0;
            } else if (++idle >= kDownloadNoProgressLimitSeconds) {
                // The library's own stall limit should have ended it: do not wait for ever.
                error(proc, " Download Failed through DownloadURL_FIle", url,
                      "no data for " + std::to_string(kDownloadNoProgressLimitSeconds) + " s");
                return "Failed";
            }
        }
        error(proc, " Download Failed through DownloadURL_FIle", url,
              "not finished after " + std::to_string(kDownloadPollLimitSeconds) + " s");
        return "Failed";
    } catch (const std::exception& e) {
        ErrInfo err = errFrom(e);
        logTrap(kModule, proc, " Download Failed through DownloadURL_FIle", err);
        appendErrorTrail(proc, err);
        return "Failed";
    }
}

bool DownloadFile(const std::string& url, const std::string& destination) {
    try {
        return platform::internet().urlDownloadToFile(url, destination) == 0;
    } catch (const std::exception& e) {
        ErrInfo err = errFrom(e);
        runState.ErrorTrail += "  Err While at DownloadFile : " + std::to_string(err.number) + " : " + err.description;
        return false;
    }
}

std::string fncCheckSum(const std::string& path) {
    // Large files are read block by block rather than whole.
    constexpr uint64_t kWholeFileLimit = 64ull << 20;
    try {
        std::string md5;
        bool ok = platform::files().fileSize(path) <= kWholeFileLimit ? platform::maker().kGetMD5(path, md5)
                                                                       : platform::maker().kGetMD5WBlock(path, md5);
        if (ok && !md5.empty()) return md5;
        WriteW3CLog("ModDownload", "fncCheckSum", "ERROR", " Unable to generate MD5 Checksum", "0", "", path);
        return {};
    } catch (const std::exception& e) {
        ErrInfo err = errFrom(e);
        logTrap("ModDownload", "fncCheckSum", " Unable to generate MD5 Checksum", err);
        appendErrorTrail("fncCheckSum", err);
        return {};
    }
}

}  // namespace kpm

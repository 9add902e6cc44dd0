#include "support/support_files.h"

#include <algorithm>
#include <exception>

#include "config/agent_settings.h"
#include "config/ini.h"
#include "driver/error_trap.h"
#include "driver/main.h"
#include "driver/run_state.h"
#include "log/w3c_log.h"
#include "mspatch/download_channels.h"
#include "platform/host.h"

namespace kpm {

namespace {

void log(const char* module, const char* proc, const char* type, const std::string& message,
         const std::string& v1 = "", const std::string& v2 = "") {
    WriteW3CLog(module, proc, type, message, v1, v2);
}

void trap(const char* module, const char* proc, const std::exception& e) {
    ErrInfo err = errFrom(e);
    logTrap(module, proc, "In " + std::string(proc) + ".", err);
    appendErrorTrail(proc, err);
}

// "Download", "WBListDownload" of the agent INI: trimmed, cut to the returned length.
std::string blackListGateway() {
    return Trim(fncReadAgentIni("Download", "WBListDownload", agentSettings.InstallPath + "VORNMobile.INI"));
}

std::string dataCenterArchiveUrl() { return agentSettings.BlackListURL + "/" + "wblist.zip"; }

// Three attempts through the download object, no pause between them.
bool threeAttempts(const char* module, const char* proc, const char* attemptText, const std::string& url,
                   const std::string& destination) {
    for (int attempt = 1; attempt <= 3; ++attempt) {
        log(module, proc, "INFO", attemptText, std::to_string(attempt));
        if (fncDownloadFile(url, destination)) {
            log(module, proc, "INFO", "Download Complete..File copied to", destination);
            return true;
        }
    }
    log(module, proc, "ERROR", "Download Failed 3 times , Aborting download now");
    return false;
}

}  // namespace

bool Download_BlackList(const std::string& fileName) {
    const char* proc = "Download_BlackList";
    try {
        log("ModMain", proc, "INFO", "Downloading From GateWay.");
        const std::string temp = ProgramFolderShort() + "\\Temp";
        platform::files().makeSureDirectoryPathExists(temp + "\\");
        const std::string destination = temp + "\\" + fileName;
        std::string base = blackListGateway();
        if (base.empty() || base.back() != '/') base += '/';
        // Tested only after the "/" was added, so never taken: an unconfigured
        // gateway gives the address "/" + file name and three failed attempts.
        if (Trim(base).empty()) {
            log("ModMain", proc, "INFO", "Gateway is not configured");
            return false;
        }
        const std::string url = base + fileName;
        log("ModMain", proc, "INFO", "URL", url);
        log("ModMain", proc, "INFO", "File name", fileName);
        return threeAttempts("ModMain", proc, "Attempt", url, destination);
    } catch (const std::exception& e) {
        trap("ModMain", proc, e);
        return false;
    }
}

bool DCDownload() {
    const char* module = "ModBlackListDownload";
    const char* proc = "DCDownload";
    try {
        const std::string destination = ProgramFolderShort() + "\\Temp\\" + "wblist.zip";
        if (!DownloadFile(dataCenterArchiveUrl(), destination)) {
            log(module, proc, "ERROR", "Could Not Be Downloaded from the DataCenter ", agentSettings.BlackListURL,
                "wblist.zip");
            log(module, proc, "INFO", "Attempt 2nd Downloading again");
            if (!Download_BlackList_FromDC()) {
                log(module, proc, "ERROR", "Could Not Be Downloaded from the DataCenter ",
                    agentSettings.BlackListURL, "wblist.zip");
                return false;
            }
        }
        log(module, proc, "INFO", "Downloaded Successfully from the DataCenter");
        return true;
    } catch (const std::exception& e) {
        trap(module, proc, e);
        return false;
    }
}

bool Download_BlackList_FromDC() {
    const char* module = "ModBlackListDownload";
    const char* proc = "Download_BlackList_FromDC";
    try {
        log(module, proc, "INFO", "Downloading Black List From DC");
        // Not the "Temp" folder, where the run driver unzips from: kept so.
        const std::string destination = ProgramFolderShort() + "\\" + "wblist.zip";
        const std::string url = dataCenterArchiveUrl();
        log(module, proc, "INFO", "URL", url);
        log(module, proc, "INFO", "File name", "wblist.zip");
        return threeAttempts(module, proc, "Attempt: ", url, destination);
    } catch (const std::exception& e) {
        trap(module, proc, e);
        return false;
    }
}

bool fncUnzipArchive(const std::string& archive, const std::string& folder, std::string& why) {
    platform::Object zip = platform::automation().createObject("ChilkatZip2.Chilkatzip2");
    bool ok = zip.call("OpenZip", archive).toLong() == 1;
    if (ok) ok = zip.call("Unzip", folder).toLong() >= 0;
    why = ok ? "" : zip.get("LastErrorText").toString();
    zip.call("CloseZip");
    return ok;
}

bool subUnzipFile(const std::string& zipFile, const std::string& folder) {
    // Only the result says how it went: the run driver logs the black list as
    // not downloaded when the archive does not unpack.
    try {
        std::string why;
        return fncUnzipArchive(folder + "\\" + zipFile, folder, why);
    } catch (const std::exception&) {
        return false;
    }
}

void subDownloadAllFiles() {
    const char* module = "ModDownload";
    const char* proc = "subDownloadAllFiles";
    try {
        const std::string component = PatchManagementFolder() + "KDowFile.dll";
        const std::string url = std::string(kMakerUpdateHost) + "/kScc/KDowFile.dll";
        auto present = [&] { return platform::files().fileExists(component); };
        if (present()) {
            log(module, proc, "INFO", "Already Downloaded", url);
            return;
        }
        log(module, proc, "INFO", "Downloading Attempt 1 from, DC", "KDowFile.dll");
        if (DLoadPchFromMicrosoft(url)) {
            if (present()) {
                log(module, proc, "INFO", "Successfully Downloaded", url);
                return;
            }
            log(module, proc, "ERROR", "Failed to Downloaded");
        }
        log(module, proc, "INFO", "Downloading Attempt 2 from Gateway", "KDowFile.dll");
        if (DloadPthOnGateWay(url)) {
            if (present()) {
                log(module, proc, "INFO", "Successfully Downloaded from Gateway", url);
                return;
            }
            log(module, proc, "ERROR", "Failed to Downloaded from Gateway");
        }
        log(module, proc, "INFO", "Downloading Attempt 3 from DC");
        if (DownloadFile(url, component)) {
            if (present()) {
                log(module, proc, "INFO", "Successfully Downloaded from DC", url);
                return;
            }
            log(module, proc, "ERROR", "Failed to Downloaded from DC");
            CloseAll();
        }
    } catch (const std::exception& e) {
        trap(module, proc, e);
    }
}

void subReadDownloadList() {
    DownloadURLList.clear();
    DownloadURLPieces.clear();
    const std::string list = PatchManagementFolder() + "DwldURL.txt";
    if (!platform::files().fileExists(list)) return;
    const std::string text = platform::files().readAll(list);
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find('\n', start);
        std::string line = text.substr(start, end == std::string::npos ? std::string::npos : end - start);
        if (!line.empty() && line.back() == '\r') line.pop_back();
        for (size_t from = 0, to; from <= line.size(); from = to + 1) {
            to = std::min(line.find('\\', from), line.size());
            DownloadURLPieces.insert(line.substr(from, to - from));
        }
        DownloadURLList.push_back(line);
        if (end == std::string::npos) break;
        start = end + 1;
    }
}

void subCleanPatchFolders() {
    auto clean = [](const std::string& folder) {
        if (!platform::files().folderExists(folder)) return;
        for (const std::string& name : platform::files().listFiles(folder)) subDeletePatch(folder + "\\" + name);
    };
    if (runState.MSPassRan) clean(agentSettings.InstallPath + "BaseComponents\\PatchManagement\\Components");
    if (runState.TPPassRan) clean(agentSettings.InstallPath + "BaseComponents\\PatchManagement\\Components\\Appcomp");
}

void subDeletePatch(const std::string& path) {
    try {
        const std::string name = path.substr(path.find_last_of('\\') + 1);
        const std::string key = UCase(Trim(name));
        // A fifth name is compared too, a process-wide one that nothing ever sets.
        if (key == "DOWNLOADSTATUS.INI" || key == "PATCHDLOADSTATUS.INI" || key == "WSUSSCAN.CAB" ||
            key == "WSUSSCN2.CAB")
            return;
        if (platform::files().fileExists(PatchManagementFolder() + "DwldURL.txt")) {
            const bool piece = DownloadURLPieces.count(name) != 0;
            for (const std::string& line : DownloadURLList) {
                if (piece || line.find(name) != std::string::npos) {
                    log("ModMain", "subDeletePatch", "INFO", "Patch is in the list, could Not Delete  ", path);
                    return;
                }
            }
            log("ModMain", "subDeletePatch", "INFO", "Deleting ", path);
        }
        resumeNext([&] { platform::files().clearReadOnly(path); });
        platform::files().deleteFile(path);
    } catch (const std::exception&) {
        // Deletion failures in the patch folders are ignored.
    }
}

}  // namespace kpm

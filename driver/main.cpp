#include "driver/main.h"

#include <exception>

#include "config/agent_settings.h"
#include "config/ini.h"
#include "driver/error_trap.h"
#include "driver/run_state.h"
#include "log/w3c_log.h"
#include "mspatch/download_state.h"
#include "mspatch/scan.h"
#include "mspatch/update_state.h"
#include "platform/host.h"
#include "schedule/schedule_settings.h"
#include "schedule/schedule_text.h"
#include "support/support_files.h"
#include "tppatch/product_list.h"
#include "webpost/site_config.h"
#include "webpost/status_posts.h"
#include "wuenv/environment.h"
#include "wuenv/probes.h"
#include "wuenv/registry_policy.h"
#include "wuenv/service_control.h"

namespace kpm {

namespace {

void logMain(const std::string& message) { WriteW3CLog("ModMain", "Main", "INFO", message); }

void runMicrosoftBranch() {
    const std::string folder = ProgramFolderShort();
    if (platform::files().fileExists(folder + "\\MSUpd.xml")) subReadXMLForSchedule();
    RegisteDLL();
    if (scheduleSettings.PatchDownloadEnabled != "1") return;

    Chk_Set_Prerequisites();
    if (!Download_BlackList("PatchBlackList.txt")) {
        // The gateway had no black list: try the data center's archive.
        if (DCDownload()) {
            if (!subUnzipFile("wblist.zip", folder + "\\Temp")) {
                logMain("Unable to download Black List file");
                runState.BlackListFailed = true;
            }
        } else {
            logMain("Unable to download Black List file");
            runState.BlackListFailed = true;
        }
    }
    runState.MSPassRan = true;
    if (!runState.BlackListFailed && fncWebPostKB() != 0) Scan_Deploy();
}

void runThirdPartyBranch() {
    scheduleSettings.PatchDownloadEnabled.clear();
    const std::string name = "Autosch_" + schedule_text::dateDdmmyyyy(platform::clock().now()) + ".xml";
    if (platform::files().fileExists(ProgramFolderShort() + "\\" + name))
        subReadTPMXMLForSchedule();
    else
        logMain("Third Party Configuration File not found, " + name);
    if (scheduleSettings.PatchDownloadEnabled == "1") {
        runState.TPPassRan = true;
        ScanTpmUpdates();
    }
}

}  // namespace

std::string ProgramVersion() {
    return std::to_string(KPM_VERSION_MAJOR) + "." + std::to_string(KPM_VERSION_MINOR) + "." +
           std::to_string(KPM_VERSION_REVISION);
}

void resetProcessState() {
    agentSettings = {};
    runState = {};
    scheduleSettings = {};
    environment = {};
    webPostSite = {};
    statusPosts = {};
    PartnerBlackList.clear();
    policyKeys = {};
    downloadCounters = {};
    updatePipeline = {};
    serviceControl = {};
    PdListDownloadResult = {};
    ProductListPath.clear();
    DownloadURLList.clear();
    DownloadURLPieces.clear();
    LogFilePath.clear();
}

void subWriteDownloadURL(const std::string& line) {
    if (!runState.DownloadURLOpen) return;
    platform::files().append(runState.DownloadURLPath, line + "\r\n");
}

void Main() {
    try {
        // A copy already running holds the executable's mutex: leave without a trace.
        if (!platform::sys().acquireSingleInstance(AppExeName())) platform::endProcess(0);

        OpenW3CLog();
        WriteW3CLog("modMain", "Main", "INFO", ProgramVersion());
        if (AlreadyRunning()) platform::endProcess(0);

        InitializeEXE();
        Create_Data_Log_Files();

        const std::string patchFolder = agentSettings.InstallPath + "BaseComponents\\PatchManagement\\";
        subDeleteFile(patchFolder + "DwldURL.txt");
        runState.DownloadStatusIniPath = patchFolder + "Components\\DownloadStatus.ini";
        runState.DownloadURLPath = patchFolder + "DwldURL.txt";
        platform::files().writeAll(runState.DownloadURLPath, "");
        runState.DownloadURLOpen = true;

        if (fncCheckTime()) runMicrosoftBranch();

        logMain("-----------------------------------------------------");
        logMain("--------Check for Third Party Update Download -------");

        if (fncCheckTimeTP()) runThirdPartyBranch();

        CloseAll();
    } catch (const std::exception& e) {
        ErrInfo info = errFrom(e);
        appendErrorTrail("Main", info);
        logTrap("ModMain", "Main", "In Main.", info);
        runState.ErrorSeen = true;
        CloseAll();
    }
}

bool AlreadyRunning() {
    try {
        platform::Object wmi = platform::automation().getObject("winmgmts:");
        platform::Object processes = wmi.call("InstancesOf", "Win32_Process").toObject();
        const std::string exeName = UCase(AppExeName());
        int count = 0;
        for (const platform::Variant& item : processes.items()) {
            std::string caption = UCase(Trim(item.toObject().get("Caption").toString()));
            // A substring test on purpose: any caption containing the name counts.
            if (caption.find(exeName) != std::string::npos) ++count;
        }
        if (count >= 2) {
            WriteW3CLog("ModComman", "AlreadyRunning", "INFO", "*************************");
            WriteW3CLog("ModComman", "AlreadyRunning", "INFO", "Previous Instance Running");
            WriteW3CLog("ModComman", "AlreadyRunning", "INFO", "*************************");
            return true;
        }
        return false;
    } catch (const std::exception& e) {
        ErrInfo info = errFrom(e);
        WriteW3CLog("ModComman", "AlreadyRunning", "INFO", "Failed to Check Previous Instance",
                    std::to_string(info.number), info.description);
        return false;
    }
}

void CloseAll() {
    const auto& s = scheduleSettings;
    if (s.MsScheduleDecision == "Y" || s.TpScheduleDecision == "Y") {
        const std::string schIni = ProgramFolderShort() + "\\SchPatch.ini";
        if (s.MsScheduleDecision == "Y")
            resumeNext([&] { subWriteINI("DowSchTime", "LDwnRDate", fncStampText(platform::clock().now()), schIni); });
        if (s.TpScheduleDecision == "Y")
            resumeNext([&] { subWriteINI("TPDowSchTime", "LDwnRDate", fncStampText(platform::clock().now()), schIni); });
        resumeNext([] { subReadDownloadList(); });
        resumeNext([] { subCleanPatchFolders(); });
        resumeNext([] { FncWebPostDownloadStatus(); });
    }
    resumeNext([] { subDeleteTempFiles(); });
    WriteW3CLog("ModComman", "CloseAll", "INFO", "Application stopped.");
    runState.DownloadURLOpen = false;
    platform::endProcess(0);
}

void subDeleteFile(const std::string& path) {
    resumeNext([&] { platform::files().clearReadOnly(path); });
    resumeNext([&] { platform::files().deleteFile(path); });
}

void subDeleteTempFiles() {
    std::string app;
    resumeNext([&] { app = AppPath(); });
    for (const char* name : {"\\Temp\\CriticalAlert.xml", "\\Temp\\Discard.xml", "\\Temp\\PatchBlackList.txt",
                             "\\Temp\\PatchBlackListDR.txt", "\\Temp\\wblist.zip", "\\Temp\\WUAVersion.txt",
                             "\\Temp\\PatchHexcode.txt", "\\Temp\\ConBlacklist.txt"})
        subDeleteFile(app + name);
    resumeNext([&] { platform::files().deleteFolder(app + "\\Temp"); });
}

}  // namespace kpm

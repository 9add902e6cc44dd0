#include <exception>

#include "config/agent_settings.h"
#include "config/ini.h"
#include "driver/error_trap.h"
#include "driver/run_state.h"
#include "log/w3c_log.h"
#include "mspatch/download_channels.h"
#include "mspatch/patch_selection.h"
#include "mspatch/scan.h"
#include "wuenv/service_control.h"
#include "mspatch/update_state.h"
#include "platform/host.h"
#include "wuenv/environment.h"
#include "wuenv/probes.h"
#include "wuenv/registry_policy.h"

namespace kpm {

namespace {

using platform::Object;

void scanInfo(const char* proc, const std::string& message, const std::string& v1 = "") {
    WriteW3CLog("ModMain", proc, "INFO", message, v1);
}

void trap(const char* module, const char* proc, const std::exception& e) {
    ErrInfo err = errFrom(e);
    logTrap(module, proc, "In " + std::string(proc) + ".", err);
    appendErrorTrail(proc, err);
}

// The agent's own proxy for the session, only when an address is configured.
void applyProxy(UpdatePipelineState& s) {
    const AgentSettings& a = agentSettings;
    if (a.ProxyServer.empty()) return;
    Object proxy = platform::automation().createByClsid(kWebProxyClsid);
    proxy.put("Address", a.ProxyServer);
    if (!a.ProxyUserName.empty()) {
        proxy.put("UserName", a.ProxyUserName);
        proxy.call("SetPassword", a.ProxyPassword);
    }
    s.UpdateSession.put("WebProxy", proxy);
}

void newSearcher(UpdatePipelineState& s) {
    s.UpdateSearcher = {};
    s.SearchResult = {};
    s.UpdateSearcher = s.UpdateSession.call("CreateUpdateSearcher").toObject();
    s.UpdateSearcher.put("ServerSelection", kSearchOthers);
}

}  // namespace

void Scan_Deploy() {
    UpdatePipelineState& s = updatePipeline;
    if (chkAutomaticUpdateService())
        scanInfo("Scan_Deploy", "Service Running");
    else
        s.UpdateServiceDown = true;  // the scan is attempted all the same

    for (const char* method : {"ONLINE", "OFFLINE"}) {
        if (fncCreateScan(method)) {
            FncDeployPatch();
            scanInfo("Scan_Deploy", "Searching for Missing patch Completed");
            return;
        }
    }
    runState.ErrorSeen = true;
    s.UpdateServiceDown = true;
}

bool fncCreateScan(const std::string& method) {
    const char* proc = "fncCreateScan";
    UpdatePipelineState& s = updatePipeline;
    try {
        s.ScanningMethod = method;
        s.UpdateSession = {};
        s.UpdateCollection = {};
        s.UpdateSession = platform::automation().createObject("Microsoft.Update.Session");
        s.UpdateCollection = platform::automation().createObject("Microsoft.Update.UpdateColl");
        applyProxy(s);

        scanInfo(proc, "Scanning of machine start.");
        scanInfo(proc, "Scanning Method", s.ScanningMethod);
        environment.ScanStartTime = platform::clock().now();

        if (s.ScanningMethod == "ONLINE") {
            s.InternetAvailable = ChkInterNetConnectivity();
            if (!s.InternetAvailable) return false;
            s.UpdateServiceManager = platform::automation().createObject("Microsoft.Update.ServiceManager");
            Object services = s.UpdateServiceManager.obj("Services");
            const long count = static_cast<long>(services.get("Count").toLong());
            for (long i = 0; i < count; ++i) {
                Object service = services.obj("Item", i);
                if (service.get("Name").toString() == "Microsoft Update") {
                    s.UpdateService = service;
                    break;
                }
            }
            newSearcher(s);
            // The Microsoft Update service is searched by its fixed identifier,
            // whether or not the manager listed it.
            s.UpdateSearcher.put("ServiceID", kMicrosoftUpdateServiceID);
        } else {
            if (!DownLoad_WsusScanCab()) {
                WriteW3CLog("ModMain", proc, "ERROR",
                            "Unable to download Wsusscn2.cab File for offline scanning. Terminating the program");
                return false;
            }
            s.UpdateServiceManager = platform::automation().createObject("Microsoft.Update.ServiceManager");
            s.UpdateService = s.UpdateServiceManager
                                  .call("AddScanPackageService", "Offline Service",
                                        AppPath() + "\\" + kOfflineCatalogName)
                                  .toObject();
            scanInfo(proc, "Cab files added successfull for offline scanning.");
            newSearcher(s);
            s.UpdateSearcher.put("ServiceID", s.UpdateService.get("ServiceID"));
        }

        s.SearchResult = s.UpdateSearcher.call("Search", kUpdateSearchCriteria).toObject();
        scanInfo(proc, "Checking updates successfully..");
        return true;
    } catch (const std::exception& e) {
        runState.ErrorSeen = true;
        trap("ModMain", proc, e);
        return false;
    }
}

bool DownLoad_WsusScanCab() {
    try {
        WriteW3CLog("ModComman", "DownLoad_WsusScanCab", "INFO", "Downloading wsusscn2.CAB for Offline Scanning");
        // Fetched on every offline scan: an older catalogue is never trusted.
        return DownloadCab("wsusscn2");
    } catch (const std::exception& e) {
        trap("ModComman", "DownLoad_WsusScanCab", e);
        return false;
    }
}

bool DownloadCab(const std::string& /*name*/) {
    const char* proc = "DownloadCab";
    try {
        const std::string destination = AppPath() + "\\" + kOfflineCatalogName;
        WriteW3CLog("ModComman", proc, "INFO", "Downloading wsusscn2.cab from GateWay");
        // No test for a missing gateway: an empty setting gives "/wsusscn2.cab",
        // which simply fails to download.
        std::string url = fncReadAgentIni("Download", "PMDownload", agentSettings.InstallPath + "VORNMobile.INI");
        if (url.empty() || url.back() != '/') url += '/';
        url += kOfflineCatalogName;
        WriteW3CLog("ModComman", proc, "INFO", "URL", url);
        for (int attempt = 1; attempt <= 3; ++attempt) {
            WriteW3CLog("ModComman", proc, "INFO", "Attempt", std::to_string(attempt));
            if (fncDownloadFile(url, destination)) {
                WriteW3CLog("ModComman", proc, "INFO", "Downloaded wsusscn2.CAB Complete..copied", destination);
                return true;
            }
        }
        return false;
    } catch (const std::exception& e) {
        trap("ModComman", proc, e);
        return false;
    }
}

}  // namespace kpm

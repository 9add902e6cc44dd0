// Can the machine reach the Internet (through the configured proxy when
// there is one), and which version of the update agent does it run.
#include <exception>

#include "config/agent_settings.h"
#include "config/ini.h"
#include "driver/error_trap.h"
#include "driver/run_state.h"
#include "log/w3c_log.h"
#include "platform/host.h"
#include "wuenv/environment.h"
#include "wuenv/probes.h"

namespace kpm {

namespace {

void logInfo(const std::string& proc, const std::string& message, const std::string& v1 = "") {
    WriteW3CLog("ModComman", proc, "INFO", message, v1);
}

// Scheme and host of the probe page, as the failure messages name it.
std::string probeSite() {
    const std::string url = kConnectivityProbeUrl;
    const size_t host = url.find("://");
    const size_t path = url.find('/', host == std::string::npos ? 0 : host + 3);
    return path == std::string::npos ? url : url.substr(0, path);
}

}  // namespace

bool ChkInterNetConnectivity() {
    const char* proc = "ChkInterNetConnectivity";
    const AgentSettings& s = agentSettings;
    const bool viaProxy = !s.ProxyServer.empty();
    platform::Object request;
    try {
        request = platform::automation().createObject(viaProxy ? "Msxml2.ServerXMLHTTP.4.0" : "Msxml2.ServerXMLHTTP.3.0");
        logInfo(proc, viaProxy ? "Opening HTTP Request to website." : "Opening HTTP Request.");
        request.call("open", "GET", kConnectivityProbeUrl, false);
        logInfo(proc, viaProxy ? "Opened HTTP Request to website." : "Opened HTTP Request.");
        if (viaProxy) {
            request.call("setProxy", 2, s.ProxyServer);
            if (!s.ProxyUserName.empty()) request.call("setProxyCredentials", s.ProxyUserName, s.ProxyPassword);
        }
        request.call("send");
        logInfo(proc, viaProxy ? "Sent Request to website." : "Sent Request.");
        const std::string status = request.get("Status").toString();
        if (status != "200") {
            const std::string statusText = request.get("statusText").toString();
            const std::string site = probeSite();
            if (viaProxy) {
                WriteW3CLog("ModComman", proc, "ERROR", "Unexpected status Object 40 URL : " + site, status, statusText,
                            s.ProxyServer);
                // The doubled dash group is what the report has always carried.
                runState.ErrorTrail += " : Unexpected status Object 40: [" + status + "] [" + statusText +
                                       "] URL : " + site + ":--" + "--:" + s.ProxyServer + ":";
            } else {
                WriteW3CLog("ModComman", proc, "ERROR", "Unexpected status Object 30 URL : " + site, status, statusText);
                runState.ErrorTrail +=
                    " : Unexpected status Object 30: [" + status + "] [" + statusText + "] URL : " + site;
            }
            request.release();
            return false;
        }
        logInfo(proc, "Connection to Internet Successful.");
        request.release();
        return true;
    } catch (const std::exception& e) {
        // No answer at all (refused, no such host, no request object): no
        // Internet as far as the scan is concerned.
        request.release();
        ErrInfo err = errFrom(e);
        logTrap("ModComman", proc, "In ChkInterNetConnectivity.", err);
        appendErrorTrail(proc, err);
        return false;
    }
}

void ChkAutoUpdateVersion() {
    platform::Object info;
    try {
        info = platform::automation().createObject("Microsoft.Update.AgentInfo");
        const std::string version = info.call("GetInfo", "ProductVersionString").toString();
        logInfo("ChkAutoUpdateVersion", "Auto Update Version.", version);
        environment.AgentVersion = Trim(version);
        info.release();
    } catch (const std::exception& e) {
        info.release();
        ErrInfo err = errFrom(e);
        logTrap("ModComman", "ChkAutoUpdateVersion", "In ChkAutoUpdateVersion.", err);
        appendErrorTrail("ChkAutoUpdateVersion", err);
    }
}

}  // namespace kpm

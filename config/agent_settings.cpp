#include "config/agent_settings.h"

#include <cstdio>
#include <exception>

#include "config/ini.h"
#include "driver/error_trap.h"
#include "driver/run_state.h"
#include "log/w3c_log.h"
#include "platform/host.h"
#include "platform/variant.h"
#include "wuenv/registry_policy.h"

namespace kpm {

namespace {

constexpr const char* kAgentKey = "SOFTWARE\\VORNOD";

// What the agent INI reader's trap caught, for InitializeEXE's entry.
ErrInfo g_iniReadError;

void addTrail(const std::string& text) {
    agentSettings.StartupTrail +=
        fncRunStartTimeText(platform::clock().now()) + "\t" + text + "\r\n";
}

std::string siteUrl(const std::string& base, const char* page) {
    std::string url = base;
    if (url.empty() || url.back() != '/') url += '/';
    return url + page;
}

void logInit(const std::string& message, const std::string& val1 = "") {
    WriteW3CLog("ModMain", "InitializeEXE", "INFO", message, val1);
}

}  // namespace

std::string fncReadAgentIni(const std::string& section, const std::string& key, const std::string& file) {
    std::string buffer(500, '\0');
    uint32_t n = platform::profile().getString(section, key, "", buffer, 500, file);
    return buffer.substr(0, std::min<size_t>(n, buffer.size()));
}

std::string fncRunStartTimeText(const platform::DateTime& t) {
    char buf[40];
    std::snprintf(buf, sizeof buf, "%02d/%02d/%04d %d:%d:%d", t.month, t.day, t.year, t.hour,
                  t.minute, t.second);
    return buf;
}

std::string fncTimestampText(const platform::DateTime& t) {
    char buf[24];
    std::snprintf(buf, sizeof buf, "%04d%02d%02d%02d%02d%02d", t.year, t.month, t.day, t.hour,
                  t.minute, t.second);
    return buf;
}

std::string fncStampText(const platform::DateTime& t) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%02d/%02d/%04d %02d:%02d:%02d", t.month, t.day, t.year, t.hour,
                  t.minute, t.second);
    return buf;
}

std::string fncGetComputerName() {
    std::string buffer(200, 'X');
    uint32_t size = 200;
    try {
        platform::sys().getComputerName(buffer, size);
    } catch (const std::exception&) {
    }
    return UCase(buffer.substr(0, std::min<size_t>(size, buffer.size())));
}

std::string DecryptString(const std::string& text) {
    if (text.empty()) return {};
    try {
        std::string out;
        size_t start = 0;
        while (true) {
            size_t h = text.find('H', start);
            std::string piece = text.substr(start, h == std::string::npos ? std::string::npos : h - start);
            int64_t code = platform::Variant(piece).toLong();
            if (code < 0 || code > 255) throw platform::makeError(platform::err::InvalidProcedureCall);
            out += static_cast<char>(code);
            if (h == std::string::npos) break;
            start = h + 1;
        }
        return out;
    } catch (const std::exception& e) {
        logTrap("ModComman", "DecryptString", "DecryptString", errFrom(e));
        return {};
    }
}

bool fncReadVORNMobileINI(const std::string& iniPath) {
    g_iniReadError = {};
    auto& a = agentSettings;
    try {
        if (!platform::files().fileExists(iniPath)) {
            addTrail("ERROR " + iniPath + " not found");
            return false;
        }
        a.ProxyHost = fncReadAgentIni("ProxySettings", "ProxyIP", iniPath);
        a.ProxyServer = a.ProxyHost;
        a.ProxyPort = fncReadAgentIni("ProxySettings", "ProxyPort", iniPath);
        if (!a.ProxyPort.empty()) {
            a.ProxyServer = a.ProxyHost + ":" + a.ProxyPort;
            addTrail("Proxy Server with Port Number : " + a.ProxyServer);
        }
        a.ProxyUserName = DecryptString(fncReadAgentIni("ProxySettings", "ProxyUserName", iniPath));
        a.ProxyPassword = DecryptString(fncReadAgentIni("ProxySettings", "ProxyPassword", iniPath));
        a.IsEncrypt = fncReadAgentIni("ProxySettings", "IsEncrypt", iniPath);
        std::string primary = fncReadAgentIni("DCConnURL", "ControllerPSite", iniPath);
        a.DownLoadSite = Trim(fncReadAgentIni("VornUpdates", "DownLoadSite", iniPath));
        a.PMDownloadURL = Trim(fncReadAgentIni("Download", "PMDownload", iniPath));
        a.BlackListURL = siteUrl(a.DownLoadSite, "wblist");
        a.PrimarySiteURL = siteUrl(primary, "tfr_wpautopatchdeploy.asp");
        addTrail("The Primary Auto patch deploy web site: " + a.PrimarySiteURL);
        std::string secondary = fncReadAgentIni("DCConnURL", "ControllerSSite", iniPath);
        a.SecondarySiteURL = siteUrl(secondary, "tfr_wpautopatchdeploy.asp");
        addTrail("The secondary Auto patch deploy web site: " + a.SecondarySiteURL);
        return true;
    } catch (const std::exception& e) {
        g_iniReadError = errFrom(e);
        return false;
    }
}

void InitializeEXE() {
    auto& a = agentSettings;
    try {
        runState.ErrorTrail.clear();
        runState.StatusText1.clear();
        runState.StatusText2.clear();
        runState.ErrorSeen = false;
        runState.DownloadMode = "Online";
        platform::DateTime now = platform::clock().now();
        a.RunTimestamp = fncTimestampText(now);
        a.RunStartTime = fncRunStartTimeText(now);
        a.ComputerName = fncGetComputerName();

        logInit(std::string(70, '*'));
        logInit("Application started");
        logInit("Registry reading start.");

        a.InstallPath = Trim(RegQueryStringValue(platform::Hive::LocalMachine, kAgentKey, "InstallationPath"));
        a.RegID = Trim(RegQueryStringValue(platform::Hive::LocalMachine, kAgentKey, "regID"));
        a.SiteID = Trim(RegQueryStringValue(platform::Hive::LocalMachine, kAgentKey, "SiteID"));
        a.MemberID = Trim(RegQueryStringValue(platform::Hive::LocalMachine, kAgentKey, "MemberID"));
        a.AgentType = Trim(RegQueryStringValue(platform::Hive::LocalMachine, kAgentKey, "Type"));
        logInit("VornMobile installation path ", a.InstallPath);

        // An unregistered or half-installed agent goes no further.
        if (a.RegID.empty() || a.SiteID.empty() || a.MemberID.empty() || a.AgentType.empty() ||
            !platform::files().folderExists(a.InstallPath))
            platform::endProcess(0);

        if (a.InstallPath.empty() || a.InstallPath.back() != '\\') a.InstallPath += '\\';

        addTrail("Registry reading complete.");
        addTrail("Reading VORNMobile.INI start.");
        logInit("Registry reading complete");
        logInit("Reading VORNMobile.INI start.");

        if (!fncReadVORNMobileINI(a.InstallPath + "VORNMobile.ini")) {
            WriteW3CLog("ModMain", "InitializeEXE", "ERROR", "Reading VornMobile.ini",
                        std::to_string(g_iniReadError.number), g_iniReadError.description,
                        std::to_string(g_iniReadError.lastDllError));
        }
        logInit("Reading VORNMobile.INI complete.");
    } catch (const std::exception& e) {
        logTrap("ModMain", "InitializeEXE", "Initializing and Checking Registry.", errFrom(e));
    }
}

}  // namespace kpm

// The agent: its key and INI as InitializeEXE reads them, what would end a
// pass before its log, and the addresses the pass would use.
#include <string>

#include "check/check_parts.h"
#include "config/agent_settings.h"
#include "config/ini.h"
#include "mspatch/download_channels.h"
#include "platform/errors.h"
#include "platform/host.h"
#include "wuenv/registry_policy.h"

namespace kpm::check {

namespace {

constexpr const char* kAgentKey = "SOFTWARE\\VORNOD";

std::string agentValue(const char* name) {
    return Trim(RegQueryStringValue(platform::Hive::LocalMachine, kAgentKey, name));
}

bool agentKeyThere() {
    std::unique_ptr<platform::RegKey> key;
    return platform::registry().openKey(platform::Hive::LocalMachine, kAgentKey, platform::regaccess::Read,
                                        platform::RegView::Default, key) == platform::regerr::Success;
}

std::string orNone(const std::string& s) { return s.empty() ? "(none)" : s; }

// The agent INI's raw credential: what the pass decodes, and how a plain
// text shows it could not (the pass then logs "DecryptString 13 Type mismatch").
void checkCredential(Report& report, Section& proxy, const char* key, bool showDecoded) {
    const std::string ini = agentSettings.InstallPath + "VORNMobile.ini";
    const std::string raw = fncReadAgentIni("ProxySettings", key, ini);
    if (raw.empty()) {
        if (showDecoded) proxy.add("user", "(none)");
        return;
    }
    const std::string decoded = DecryptString(raw);
    if (showDecoded) proxy.add("user", decoded.empty() ? "(does not decode)" : decoded);
    if (!showDecoded) proxy.add("password", decoded.empty() ? "set, does not decode" : "set (not shown)");
    if (decoded.empty())
        report.warnings.push_back(std::string("[ProxySettings] ") + key + " in " + ini +
                                  " does not decode: the pass logs \"DecryptString 13 Type mismatch\" and uses "
                                  "no " + (showDecoded ? "user name" : "password") +
                                  ". Write each character's code, joined by H: alice is 97H108H105H99H101 "
                                  "(kpmdwld-encdec encode-credential TEXT)");
}

}  // namespace

bool CheckAgent(Report& report) {
    Section& agent = report.section("agent");
    if (!agentKeyThere()) {
        report.unreadable = "no agent key HKEY_LOCAL_MACHINE\\SOFTWARE\\VORNOD as a 32-bit program sees it "
                            "(SOFTWARE\\Wow6432Node\\VORNOD on 64-bit Windows)";
        agent.add("agent key", "missing");
        return false;
    }
    try {
        InitializeEXE();
    } catch (const platform::ProcessEnd&) {
        // An unregistered or half-installed agent: said below, value by value.
    }
    const std::string folder = agentValue("InstallationPath");
    agent.add("install folder", orNone(folder));
    agent.add("RegID", orNone(agentValue("regID")));
    agent.add("site", orNone(agentValue("SiteID")));
    agent.add("member", orNone(agentValue("MemberID")));
    agent.add("agent type", orNone(agentValue("Type")));
    agent.add("program folder", AppPath());

    std::string missing;
    for (const char* name : {"regID", "SiteID", "MemberID", "Type"})
        if (agentValue(name).empty()) missing += std::string(missing.empty() ? "" : ", ") + name;
    if (!missing.empty())
        report.unreadable = "the agent key has no " + missing;
    else if (folder.empty() || !platform::files().folderExists(folder))
        report.unreadable = "the install folder \"" + folder + "\" does not exist";
    if (!report.unreadable.empty()) {
        agent.add("a pass would", "end before its first step, without a word in its log");
        return false;
    }
    const std::string ini = agentSettings.InstallPath + "VORNMobile.ini";
    agent.add("agent INI", platform::files().fileExists(ini) ? ini : ini + " (missing)");
    if (!platform::files().fileExists(ini))
        report.warnings.push_back(ini + " is missing: the pass logs \"Reading VornMobile.ini\" as an error and "
                                  "goes on with no proxy and no site addresses");
    return true;
}

void CheckNetwork(Report& report) {
    const AgentSettings& a = agentSettings;
    Section& proxy = report.section("proxy");
    proxy.add("host", orNone(a.ProxyHost));
    proxy.add("port", orNone(a.ProxyPort));
    proxy.add("server", orNone(a.ProxyServer));
    checkCredential(report, proxy, "ProxyUserName", true);
    checkCredential(report, proxy, "ProxyPassword", false);

    const std::string ini = a.InstallPath + "VORNMobile.ini";
    Section& sites = report.section("addresses");
    sites.add("gateway (patches, product list, installers)",
              orNone(Trim(fncReadAgentIni("Download", "PMDownload", ini))));
    sites.add("gateway black list", orNone(Trim(fncReadAgentIni("Download", "WBListDownload", ini))));
    sites.add("data-center black list", a.BlackListURL + "/wblist.zip");
    sites.add("data-center product list", a.DownLoadSite + "/wblist/pdlist.zip");
    sites.add("download library host", std::string(kMakerUpdateHost) + "/kScc/KDowFile.dll");
    // An empty base still gives an address: the page behind a lone "/".
    auto site = [&](const char* key, const std::string& url) {
        return fncReadAgentIni("DCConnURL", key, ini).empty() ? url + " ([DCConnURL] " + key + " is empty)" : url;
    };
    sites.add("management site (primary)", site("ControllerPSite", a.PrimarySiteURL));
    sites.add("management site (secondary)", site("ControllerSSite", a.SecondarySiteURL));
}

}  // namespace kpm::check

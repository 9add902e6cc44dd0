// The agent settings: INI values, site addresses, proxy credentials, helpers.
#include <gtest/gtest.h>

#include "config/agent_settings.h"
#include "config/ini.h"
#include "log/w3c_log.h"
#include "platform/host.h"
#include "support/test_machine.h"

using kpmtest::at;
using kpmtest::TestMachine;

namespace {

const std::string kIni = std::string(kpmtest::kInstallPath) + "VORNMobile.ini";

}  // namespace

TEST(AgentIni, SettingsBuiltFromTheIni) {
    struct Case {
        const char* name;
        std::string ini;
        std::string proxyServer, primary, secondary, blackList, pmDownload;
    };
    const Case cases[] = {
        {"port without host", "[ProxySettings]\r\nProxyPort=8080\r\n", ":8080",
         "/tfr_wpautopatchdeploy.asp", "/tfr_wpautopatchdeploy.asp", "/wblist", ""},
        {"host and port; slashes", "[ProxySettings]\r\nProxyIP=10.0.0.1\r\nProxyPort=3128\r\n"
         "[DCConnURL]\r\nControllerPSite=http://p.example/\r\nControllerSSite=http://s.example\r\n"
         "[VornUpdates]\r\nDownLoadSite=http://d.example/\r\n",
         "10.0.0.1:3128", "http://p.example/tfr_wpautopatchdeploy.asp",
         "http://s.example/tfr_wpautopatchdeploy.asp", "http://d.example/wblist", ""},
        {"host only", "[ProxySettings]\r\nProxyIP=proxy\r\n", "proxy", "/tfr_wpautopatchdeploy.asp",
         "/tfr_wpautopatchdeploy.asp", "/wblist", ""},
        // Quotes keep the blanks: the site addresses are not trimmed, the
        // download addresses are.
        {"blanks inside quotes", "[DCConnURL]\r\nControllerPSite=\" http://p \"\r\n"
         "[VornUpdates]\r\nDownLoadSite=\" http://d \"\r\n[Download]\r\nPMDownload=\" http://pm \"\r\n",
         "", " http://p /tfr_wpautopatchdeploy.asp", "/tfr_wpautopatchdeploy.asp", "http://d/wblist", "http://pm"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        TestMachine m;
        m.writeFile(kIni, c.ini);
        m.open(at("2026-11-15T16:10:00"));
        EXPECT_TRUE(kpm::fncReadVORNMobileINI(kIni));
        const auto& a = kpm::agentSettings;
        EXPECT_EQ(a.ProxyServer, c.proxyServer);
        EXPECT_EQ(a.PrimarySiteURL, c.primary);
        EXPECT_EQ(a.SecondarySiteURL, c.secondary);
        EXPECT_EQ(a.BlackListURL, c.blackList);
        EXPECT_EQ(a.PMDownloadURL, c.pmDownload);
    }
}

TEST(AgentIni, LongValuesAreCutByTheReadersBuffers) {
    TestMachine m;
    std::string longSite(600, 'a');
    m.writeFile(kIni, "[DCConnURL]\r\nControllerPSite=" + longSite + "\r\n[S]\r\nK=" + std::string(6000, 'b') + "\r\n");
    m.open(at("2026-11-15T16:10:00"));
    kpm::fncReadVORNMobileINI(kIni);
    EXPECT_EQ(kpm::agentSettings.PrimarySiteURL, std::string(499, 'a') + "/tfr_wpautopatchdeploy.asp");
    EXPECT_EQ(kpm::fncReadINI("S", "K", kIni), std::string(4999, 'b'));
    EXPECT_EQ(kpm::fncReadINI("S", "missing", kIni), "");
    EXPECT_EQ(kpm::fncReadINI("S", "K", "C:\\no\\such.ini"), "");
}

TEST(AgentIni, ProxyCredentialsAreDecoded) {
    struct Case {
        std::string encoded, decoded;
        bool logsError;
    };
    const Case cases[] = {
        {"", "", false},
        {"117H115H101H114", "user", false},
        {"80H64H36H36", "P@$$", false},
        {"117H115H", "", true},   // a trailing "H" leaves an empty last piece
        {"117HxH115", "", true},  // not a number
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.encoded);
        TestMachine m;
        m.writeFile(kIni, "[ProxySettings]\r\nProxyPassword=" + c.encoded + "\r\n");
        m.open(at("2026-11-15T16:10:00"));
        kpm::OpenW3CLog();
        kpm::fncReadVORNMobileINI(kIni);
        EXPECT_EQ(kpm::agentSettings.ProxyPassword, c.decoded);
        m.close();
        auto entries = m.logEntries();
        if (c.logsError) {
            ASSERT_EQ(entries.size(), 1u);
            EXPECT_EQ(entries[0][1] + "|" + entries[0][2] + "|" + entries[0][3] + "|" + entries[0][4] + "|" + entries[0][5],
                      "ModComman|DecryptString|ERROR|DecryptString|13");
        } else {
            EXPECT_TRUE(entries.empty());
        }
    }
}

TEST(Helpers, ShortPathsComputerNameAndTimes) {
    TestMachine m;
    m.open(at("2026-03-07T09:05:07"));
    EXPECT_EQ(kpm::fncGetShortPath(kpmtest::kProgramFolder), "C:\\PROGRA~1\\VORN\\VORNMO~1\\BASECO~1\\PATCHM~1");
    EXPECT_EQ(kpm::fncGetShortPath("C:\\No Such Folder"), "C:\\No Such Folder");
    EXPECT_EQ(kpm::ProgramFolderShort(), "C:\\PROGRA~1\\VORN\\VORNMO~1\\BASECO~1\\PATCHM~1");
    EXPECT_EQ(kpm::AppExeName(), "KPMDwld");
    EXPECT_EQ(kpm::fncGetComputerName(), "DEMO-PC");
    auto now = platform::clock().now();
    EXPECT_EQ(kpm::fncRunStartTimeText(now), "03/07/2026 9:5:7");
    EXPECT_EQ(kpm::fncTimestampText(now), "20260307090507");
    EXPECT_EQ(kpm::fncStampText(now), "03/07/2026 09:05:07");

    kpm::subWriteINI("DowSchTime", "Dt", "2026-3-7", kpm::ProgramFolderShort() + "\\SchPatch.ini");
    kpm::subWriteINI("dowschtime", "FTIME", " 09:00 ", kpm::ProgramFolderShort() + "\\SchPatch.ini");
    EXPECT_EQ(kpm::fncReadINI("DOWSCHTIME", "dt", kpm::ProgramFolderShort() + "\\SchPatch.ini"), "2026-3-7");
    EXPECT_EQ(kpm::fncReadINI("DowSchTime", "ftime", std::string(kpmtest::kProgramFolder) + "\\SchPatch.ini"), "09:00");
}

// Procedures at corners that no whole pass reaches (tests/scenarios holds the
// passes): readers' buffer limits, rounding boundaries, control actions the
// pass never takes, calendar corners, configuration texts with blanks.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "config/agent_settings.h"
#include "config/ini.h"
#include "log/w3c_log.h"
#include "platform/errors.h"
#include "platform/host.h"
#include "schedule/schedule_settings.h"
#include "sites/sites_server.h"
#include "support/test_machine.h"
#include "tppatch/product_list.h"
#include "webpost/site_config.h"
#include "webpost/status_posts.h"
#include "mspatch/download_channels.h"
#include "mspatch/download_state.h"
#include "wuenv/environment.h"
#include "wuenv/probes.h"
#include "wuenv/registry_policy.h"
#include "wuenv/service_control.h"

using kpmtest::at;
using kpmtest::TestMachine;

namespace {

const std::string kIni = std::string(kpmtest::kInstallPath) + "VORNMobile.ini";

// A registered machine opened at 16:10 on 15 November 2026, its log open.
struct Opened {
    explicit Opened(const std::string& machineIniExtra = "") {
        if (!machineIniExtra.empty())
            m.setMachineIni(kpmtest::readHostFile(m.root() / "machine.ini") + machineIniExtra);
        m.open(at("2026-11-15T16:10:00"));
        kpm::OpenW3CLog();
        kpm::agentSettings.InstallPath = kpmtest::kInstallPath;
    }
    TestMachine m;
};

}  // namespace

// The controller addresses never show in a pass (the web-post configuration
// gives the posts their addresses), so their rules are held here.
TEST(Procedures, AgentIniReadersAndTheirBuffers) {
    Opened o;
    o.m.writeFile(kIni, "[DCConnURL]\r\nControllerPSite=\" http://p \"\r\nControllerSSite=" + std::string(600, 's') +
                            "\r\n[S]\r\nK=" + std::string(6000, 'b') + "\r\n");
    EXPECT_TRUE(kpm::fncReadVORNMobileINI(kIni));
    EXPECT_EQ(kpm::agentSettings.PrimarySiteURL, " http://p /tfr_wpautopatchdeploy.asp");  // not trimmed
    EXPECT_EQ(kpm::agentSettings.SecondarySiteURL, std::string(499, 's') + "/tfr_wpautopatchdeploy.asp");
    o.m.writeFile(kIni, "[DCConnURL]\r\nControllerPSite=http://p/\r\n");
    kpm::fncReadVORNMobileINI(kIni);
    EXPECT_EQ(kpm::agentSettings.PrimarySiteURL, "http://p/tfr_wpautopatchdeploy.asp");
    EXPECT_EQ(kpm::agentSettings.SecondarySiteURL, "/tfr_wpautopatchdeploy.asp");
    // Codes are characters of the ANSI code page: 255 is the last one.
    EXPECT_EQ(kpm::DecryptString("97H255"), "a\xFF");
    EXPECT_EQ(kpm::DecryptString("97H256"), "");
    o.m.writeFile(kIni, "[S]\r\nK=" + std::string(6000, 'b') + "\r\n");
    EXPECT_EQ(kpm::fncReadINI("S", "K", kIni), std::string(4999, 'b'));
    EXPECT_EQ(kpm::fncReadINI("S", "missing", kIni), "");
    EXPECT_EQ(kpm::fncReadINI("S", "K", "C:\\no\\such.ini"), "");
}

TEST(Procedures, LogWritesFailSilently) {
    TestMachine m;
    m.open(at("2026-11-15T16:10:00"));
    kpm::WriteW3CLog("M", "P", "INFO", "before the log is open");
    kpm::OpenW3CLog();
    kpm::LogFilePath = "Q:\\nowhere\\x.log";
    EXPECT_NO_THROW(kpm::WriteW3CLog("M", "P", "INFO", "no such drive"));
    m.close();
    EXPECT_EQ(m.logLines().size(), 4u);  // the header only
}

// The pass only starts the service; the other actions are held here.
TEST(Procedures, ServiceControlActions) {
    struct Case {
        int16_t action;
        std::string state, start;
        bool result;
        std::string lineAfter;
        int64_t seconds;
    };
    const std::string automatic = "dword:00000002";
    const Case cases[] = {
        {0, "running", automatic, false, "wuauserv=running", 0},
        {6, "running", automatic, false, "wuauserv=running", 0},
        {1, "stopped", "dword:00000004", false, "wuauserv=stopped", 10},  // disabled: five refusals
        {2, "running", automatic, true, "wuauserv=stopped", 2},
        {2, "stopped", automatic, false, "wuauserv=stopped", 2},
        {3, "running", automatic, true, "wuauserv=running", 12},
        {3, "stopped", automatic, false, "wuauserv=stopped", 2},  // the stop fails: no start
        {4, "running", automatic, true, "wuauserv=paused", 2},
        {4, "running, refuse=pause", automatic, false, "wuauserv=running, refuse=pause", 2},
        {5, "paused", automatic, true, "wuauserv=running", 2},
        {5, "stopped", automatic, false, "wuauserv=stopped", 2},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.action) + " on " + c.state + " " + c.start);
        TestMachine m;
        m.setRegistry(TestMachine::agentRegistry() +
                      "[HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Services\\wuauserv]\r\n\"Start\"=" + c.start + "\r\n");
        m.setMachineIni(kpmtest::readHostFile(m.root() / "machine.ini") + "[Services]\r\nwuauserv=" + c.state + "\r\n");
        m.open(at("2026-11-15T16:10:00"));
        kpm::OpenW3CLog();
        const int64_t before = platform::toSeconds(platform::clock().now());
        EXPECT_EQ(kpm::fncUpdSetService("wuauserv", c.action, ""), c.result);
        EXPECT_EQ(platform::toSeconds(platform::clock().now()) - before, c.seconds);
        m.close();
        const std::string ini = kpmtest::readHostFile(m.root() / "machine.ini");
        const size_t at = ini.find("\nwuauserv=");
        EXPECT_EQ(ini.substr(at + 1, ini.find_first_of("\r\n", at + 1) - at - 1), c.lineAfter);
        EXPECT_TRUE(m.logMessages().empty());  // the actions never log
    }
}

// The rewritten date list is never stored: only the procedure shows it.
TEST(Procedures, ScheduleClampingAndCalendar) {
    struct Case {
        const char *now, *dates, *rewritten;
    };
    for (const Case& c : {Case{"2026-11-30T10:00:00", "30,31", "30,30"}, Case{"2028-02-29T10:00:00", "30,31", "30,29"},
                          Case{"2026-02-28T10:00:00", "30,31", "30,28"}, Case{"2028-02-29T10:00:00", "30", "29"},
                          Case{"2026-02-28T10:00:00", "30", "28"}, Case{"2026-02-28T10:00:00", "29", "28"},
                          Case{"2026-11-29T10:00:00", "29", "29"}, Case{"2026-11-30T10:00:00", "30", "30"}}) {
        TestMachine m;
        m.open(at(c.now));
        std::string from = "09:00", to = "17:00", days = "", type = "2", dates = c.dates, week = "";
        EXPECT_EQ(kpm::GetScheduleDecision(from, to, days, type, dates, week), "Y") << c.dates << " at " << c.now;
        EXPECT_EQ(dates, c.rewritten) << c.dates << " at " << c.now;
    }
    EXPECT_EQ(kpm::CountWeekdayInMonth("november", 2026, 6), 4);
    EXPECT_EQ(kpm::CountWeekdayInMonth("Feb", 2028, 3), 5);
    EXPECT_THROW(kpm::CountWeekdayInMonth("Smarch", 2026, 1), platform::ComError);
    EXPECT_EQ(kpm::GetMillisecondsBetween(at("2026-11-25T00:00:00"), at("2026-11-01T00:00:00")), 2073600000);
    try {
        kpm::GetMillisecondsBetween(at("2026-11-01T00:00:00"), at("2026-11-26T00:00:00"));
        ADD_FAILURE() << "25 days do not fit in 32 bits";
    } catch (const platform::ComError& e) {
        EXPECT_EQ(e.number(), platform::err::Overflow);
    }
}

// Keys and hosts with blanks make addresses no poster can send: only the
// selection shows how they are read.
TEST(Procedures, WebPostEntriesWithBlanks) {
    auto config = [](const std::string& key, const std::string& primary, const std::string& secondary) {
        return "<c><fod id=\"NDATAPOST\"><PR4><e a0=\"" + key + "\" a1=\"asp\" a2=\"" + key +
               "\" a3=\"x\" a4=\"0\" a5=\"" + primary + "\" a6=\"" + secondary +
               "\" a7=\"0\" a8=\"\" a9=\"\" a10=\"0\"/></PR4></fod></c>";
    };
    struct Case {
        std::string plain, key, site;
    };
    const Case cases[] = {
        {config(" WppthDwldInfo ", "h5", ""), "  wppthdwldinfo", "http://h5/tfr_ WppthDwldInfo .asp||tfr_ WppthDwldInfo .asp"},
        {config("wppthdwldinfo", " h5/sub ", "  "), "wppthdwldinfo",
         "http:// h5/sub /tfr_wppthdwldinfo.asp||tfr_wppthdwldinfo.asp"},
    };
    for (const auto& c : cases) {
        Opened o;
        o.m.writeWebPostConfig(c.plain);
        kpm::subReadXMLWebpost(c.key);
        const auto& w = kpm::webPostSite;
        EXPECT_EQ(w.PrimaryWebPostUrl + "|" + w.SecondaryWebPostUrl + "|" + w.PostPageName, c.site);
    }
}

// The black-list request's result is a 16-bit True, every bit set, whichever
// site answered: a pass only asks "not False", so no pass tells -1 from 1.
TEST(Procedures, BlackListRequestIsTrueFromEitherSite) {
    const std::filesystem::path folder = std::filesystem::temp_directory_path() / ("kpm-kb-" + std::to_string(::getpid()));
    std::filesystem::create_directories(folder);
    std::ofstream(folder / "wppthmsbbllist.txt") << "KB5031354";
    sites::Config config;
    config.sites = {{"primary", folder, 0, {}}, {"secondary", folder, 0, {}}};
    sites::SitesServer server(config);
    server.start();
    const std::string network = "[Network]\r\nmanage.vornsoft.com=127.0.0.1:" + std::to_string(server.port("primary")) +
                                "\r\nmanage2.vornsoft.com=127.0.0.1:" + std::to_string(server.port("secondary")) + "\r\n";
    for (const char* down : {"", "primary"}) {
        Opened o(network);
        o.m.writeWebPostConfig(
            "<wpconfig><fod name=\"NDATAPOST\"><PR4><doc key=\"wppthmsbbllist\" ext=\"asp\" root=\"wppthmsbbllist\" "
            "x=\"\" https=\"0\" p1=\"manage.vornsoft.com\" s1=\"manage2.vornsoft.com\" pair=\"0\" p2=\"\" s2=\"\" "
            "enc=\"0\"/></PR4></fod></wpconfig>");
        kpm::agentSettings.RegID = "R1";
        if (*down) server.setFault(down, "*", sites::Fault::refuse());
        EXPECT_EQ(kpm::fncWebPostKB(), -1) << "with the primary " << (*down ? "down" : "up");
        EXPECT_EQ(server.posts().back().site, *down ? "secondary" : "primary");
    }
    std::filesystem::remove_all(folder);
}

// A pass only asks about the agent's own drive, which is always there.
TEST(Procedures, DiskSpaceOfADriveThatIsNotThere) {
    // A space that cannot be read is a failure: the values stay, the low-space
    // check answers false, nothing is logged.
    Opened o;
    kpm::environment.DriveFreeMB = 42;
    EXPECT_THROW(kpm::fncGetDiskSpace("Q:\\"), std::exception);
    kpm::agentSettings.InstallPath = "Q:\\VORN\\";
    EXPECT_FALSE(kpm::fncLowDiskSpace());
    EXPECT_EQ(kpm::environment.DriveFreeMB, 42);
    o.m.close();
    EXPECT_TRUE(o.m.logMessages().empty());
}

// A pass's files are too small to reach these halves.
TEST(Procedures, MegabytesRoundHalfToEven) {
    Opened o("[Drives]\r\nC=1611399168,1610874880\r\n");  // 1536.75 MB and 1536.25 MB
    kpm::agentSettings.RegID = "R1";
    kpm::downloadCounters.AlreadyDownloadedBytes = 262144;   // 0.25 MB: the half goes to the even 0.2
    kpm::downloadCounters.CurrentDownloadedBytes = 1835008;  // 1.75 MB: 1.8
    const std::string xml = kpm::BuildDownloadInfoXml();
    EXPECT_NE(xml.find("<drivespace>1536.8</drivespace><freedrivespace>1536.2</freedrivespace>"
                       "<alrdydwldpatchsize>0.2</alrdydwldpatchsize><curdwldpatchsize>1.8</curdwldpatchsize>"),
              std::string::npos)
        << xml;
    for (const auto& [drives, low] : {std::pair{"C=1610612736000,1610612736", true},  // exactly 1536.0 MB free
                                      std::pair{"C=1610612736000,1610717594", false}}) {
        Opened d(std::string("[Drives]\r\n") + drives + "\r\n");
        EXPECT_EQ(kpm::fncLowDiskSpace(), low) << drives;
    }
}

TEST(Procedures, FileNamesFromUrls) {
    const std::pair<const char*, const char*> cases[] = {
        {"http://dl.example.com/app/setup.exe", "setup.exe"},
        {"http://dl.example.com/app.v2/setup", ""},
        {"C:\\dl\\setup.msi", "setup.msi"},
        {"C:\\dl\\sub/setup.msi", "sub/setup.msi"},
        {"setup.exe", "setup.exe"},
        {"", ""},
    };
    for (const auto& [url, name] : cases) EXPECT_EQ(kpm::GetFileNameFromURL(url), name) << url;
}

// The Microsoft channel checks a name again, though the update's own step has
// refused such names before any channel: no pass brings one this far.
TEST(Procedures, MicrosoftChannelRefusesANameThatLeavesTheFolder) {
    Opened o;
    EXPECT_FALSE(kpm::DLoadPchFromMicrosoft("http://download.windowsupdate.com/d/..\\..\\KPMDwld.exe"));
    o.m.close();
    const auto lines = o.m.logLines();
    ASSERT_EQ(lines.size(), 5u);  // the header and one entry: nothing was fetched
    EXPECT_NE(lines[4].find("\tDLoadPchFromMicrosoft\tERROR\tFile name refused: it would be written outside its "
                            "folder\t..\\..\\KPMDwld.exe\t"),
              std::string::npos)
        << lines[4];
}

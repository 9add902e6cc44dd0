// The environment probes: what the machine is (registry, version call, WMI),
// whether the probe page answers (directly or through the LAN proxy), and the
// drive's space in megabytes.
#include <gtest/gtest.h>

#include "config/agent_settings.h"
#include "downloads/downloads_fixture.h"
#include "driver/run_state.h"
#include "log/w3c_log.h"
#include "wuenv/environment.h"
#include "wuenv/probes.h"

using kpmtest::at;
using kpmtest::DownloadMachine;

namespace {

// The 32-bit program reads HKLM\SOFTWARE through Wow6432Node on this 64-bit machine.
std::string currentVersion(const std::string& values) {
    return "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Wow6432Node\\Microsoft\\Windows NT\\CurrentVersion]\r\n" + values +
           "\r\n";
}

}  // namespace

TEST(Probes, OperatingSystemAndServicePack) {
    struct Case {
        const char* name;
        std::string registry;  // values of the CurrentVersion key
        std::string os;        // machine.ini [OS] lines (version call and WMI)
        std::string classes;   // machine.ini [Classes] lines
        const char *osFound, *servicePack, *osName, *servicePackName, *trail;
    };
    const Case cases[] = {
        {"registry and WMI", "\"ProductName\"=\"Windows 7 Professional\"\r\n\"CSDVersion\"=\"Service Pack 1\"\r\n",
         "Caption=Microsoft Windows 7 Professional \r\n", "", "Windows 7 Professional", "1",
         "Microsoft Windows 7 Professional", "Service Pack 1", ""},
        // No service pack: the version call keeps the registry's name; WMI's
        // CSDVersion is Null, so its major number is used.
        {"no service pack", "\"ProductName\"=\"Windows 10 Pro\"\r\n",
         "Major=10\r\nMinor=0\r\nCSDVersion=\r\nServicePackMajor=0\r\nCaption=Microsoft Windows 10 Pro\r\n", "",
         "Windows 10 Pro", "", "Microsoft Windows 10 Pro", "Service Pack 0", ""},
        {"no WMI", "\"ProductName\"=\"Windows 10 Pro\"\r\n", "Major=10\r\nMinor=0\r\n", "winmgmts=missing\r\n",
         "Windows 10 Pro", "", "Windows 10 Pro", "Service Pack ",
         "Err while retriving OS and Service PackActiveX component can't create object"},
        {"XP from the version table", "", "Major=5\r\nMinor=1\r\nServicePackMajor=3\r\n", "winmgmts=missing\r\n",
         "Windows XP", "3", "Windows XP", "Service Pack 3", nullptr},
        {"Server 2003", "\"CSDVersion\"=\"Service Pack 2\"\r\n", "Major=5\r\nMinor=2\r\nProductType=3\r\nServicePackMajor=2\r\n",
         "winmgmts=missing\r\n", "Windows Server 2003", "2", "Windows Server 2003", "Service Pack 2", nullptr},
        {"NT 4", "", "Major=4\r\nMinor=0\r\nServicePackMajor=6\r\n", "winmgmts=missing\r\n", "Windows NT ", "6",
         "Windows NT ", "Service Pack 6", nullptr},
        // Wrong types: a DWORD reads as its number, a multi-string as nothing.
        {"wrong registry types", "\"ProductName\"=dword:00000007\r\n\"CSDVersion\"=hex(7):53,00,50,00,00,00,00,00\r\n",
         "", "winmgmts=missing\r\n", "7", "", "7", "Service Pack ", nullptr},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        DownloadMachine m(false);
        m.setRegistry(kpmtest::TestMachine::agentRegistry() + currentVersion(c.registry));
        m.writeMachineIni("[OS]\r\n" + c.os + "[Classes]\r\n" + c.classes);
        m.open(at("2026-11-15T16:10:00"));
        kpm::OpenW3CLog();
        kpm::Chk_Set_Prerequisites();
        m.close();
        const auto entries = m.entriesOf("Chk_Set_Prerequisites");
        ASSERT_EQ(2u, entries.size());
        EXPECT_EQ(std::string("Chk_Set_Prerequisites|INFO|OS Found.|") + c.osFound + "||", entries[0]);
        EXPECT_EQ(std::string("Chk_Set_Prerequisites|INFO|Service Pack.|") + c.servicePack + "||", entries[1]);
        EXPECT_EQ(c.osName, kpm::environment.OSName);
        EXPECT_EQ(c.servicePackName, kpm::environment.ServicePackName);
        EXPECT_EQ(at("2026-11-15T16:10:00"), kpm::environment.ScanStartTime);
        if (c.trail) {
            EXPECT_EQ(0u, kpm::runState.ErrorTrail.find(c.trail)) << kpm::runState.ErrorTrail;
        }
    }
}

TEST(Probes, InternetConnectivity) {
    const std::string objectFailed = "ChkInterNetConnectivity|ERROR|In ChkInterNetConnectivity.|-2146697208|";
    struct Case {
        const char* name;
        const char *proxy, *user, *password;
        bool pageServed, hostMapped;
        bool result;
        std::vector<std::string> log;   // entries of the probe, values included
        std::string trail;              // what ErrorTrail gains
        std::vector<std::string> requests;
    };
    const std::string probe = "GET " + std::string(kpmtest::kProbePagePath);
    // The first `n` of the probe's three steps (named "to website" through a proxy), then `tail`.
    auto steps = [](bool proxy, size_t n, const std::vector<std::string>& tail) {
        std::vector<std::string> e;
        for (const char* step : {"Opening HTTP Request", "Opened HTTP Request", "Sent Request"})
            if (e.size() < n) e.push_back(std::string("ChkInterNetConnectivity|INFO|") + step + (proxy ? " to website." : ".") + "|||");
        e.insert(e.end(), tail.begin(), tail.end());
        return e;
    };
    const std::string ok = "ChkInterNetConnectivity|INFO|Connection to Internet Successful.|||";
    const std::vector<std::string> refused = steps(true, 3, {"ChkInterNetConnectivity|ERROR|Unexpected status Object 40 URL : "
                                                             "http://www.microsoft.com|407|Proxy Authentication Required|proxy.corp.lan:3128"});
    const std::string refusedTrail = " : Unexpected status Object 40: [407] [Proxy Authentication Required] URL : "
                                     "http://www.microsoft.com:----:proxy.corp.lan:3128:";
    const Case cases[] = {
        {"direct", "", "", "", true, true, true, steps(false, 3, {ok}), "", {"microsoft " + probe + " 200 18"}},
        {"direct, page missing", "", "", "", false, true, false,
         steps(false, 3, {"ChkInterNetConnectivity|ERROR|Unexpected status Object 30 URL : http://www.microsoft.com|404|Not Found|"}),
         " : Unexpected status Object 30: [404] [Not Found] URL : http://www.microsoft.com", {}},
        {"no Internet", "", "", "", true, false, false, steps(false, 2, {}), " ChkInterNetConnectivity : ", {}},
        {"proxy with credentials", "proxy.corp.lan:3128", "kpm", "proxy-pass", true, true, true, steps(true, 3, {ok}),
         "", {"microsoft " + probe + " 200 18",  // the proxy logs once its answer is in
              "proxy GET http://www.microsoft.com" + std::string(kpmtest::kProbePagePath) + " 200 18"}},
        {"proxy without a user name", "proxy.corp.lan:3128", "", "", true, true, false, refused, refusedTrail, {}},
        {"proxy refuses the credentials", "proxy.corp.lan:3128", "kpm", "wrong", true, true, false, refused, refusedTrail, {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        DownloadMachine m(false);
        if (!c.pageServed) std::filesystem::remove(m.root() / "sites" / "microsoft" / "en-us" / "default.aspx");
        if (!c.hostMapped) m.sites().setFault("microsoft", "*", sites::Fault::refuse());
        m.open(at("2026-11-15T16:10:00"));
        kpm::OpenW3CLog();
        kpm::agentSettings.ProxyServer = c.proxy;
        kpm::agentSettings.ProxyUserName = c.user;
        kpm::agentSettings.ProxyPassword = c.password;
        EXPECT_EQ(c.result, kpm::ChkInterNetConnectivity());
        m.close();
        auto log = m.entriesOf("ChkInterNetConnectivity");
        if (!c.hostMapped) {
            ASSERT_EQ(3u, log.size());
            EXPECT_EQ(0u, log[2].find(objectFailed)) << log[2];
            log.pop_back();
        }
        EXPECT_EQ(c.log, log);
        if (c.hostMapped) {
            EXPECT_EQ(c.trail, kpm::runState.ErrorTrail);
        } else {  // the trap's entry: last system error and the error's number
            EXPECT_EQ(0u, kpm::runState.ErrorTrail.find(c.trail));
            EXPECT_TRUE(kpm::runState.ErrorTrail.ends_with(" : -2146697208")) << kpm::runState.ErrorTrail;
        }
        if (c.result) {
            EXPECT_EQ(c.requests, m.requestLines());
        }
    }
}

TEST(Probes, DiskSpaceInMegabytesHalfToEven) {
    struct Case {
        const char* drives;  // machine.ini [Drives] line
        const char *total, *free;
        bool low;
    };
    const Case cases[] = {
        {"C=1610612736000,1610612736", "1536000", "1536", true},         // exactly 1536.0 MB free: low
        {"C=1610612736000,1610717594", "1536000", "1536.1", false},      // 1536.1 MB: enough
        {"C=1611399168,1610874880", "1536.8", "1536.2", false},          // 1536.75 -> .8, 1536.25 -> .2
    };
    DownloadMachine m(false);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.drives);
        m.writeMachineIni(std::string("[Drives]\r\n") + c.drives + "\r\n");
        m.open(at("2026-11-15T16:10:00"));
        kpm::OpenW3CLog();
        EXPECT_EQ(c.low, kpm::fncLowDiskSpace());
        EXPECT_EQ(c.total, kpm::environment.DriveTotalMBText);
        EXPECT_EQ(c.free, kpm::environment.DriveFreeMBText);
    }
    // A drive the machine does not have: nothing known, so nothing to spare.
    kpm::fncGetDiskSpace("Q:\\");
    EXPECT_EQ("0", kpm::environment.DriveFreeMBText);
    m.close();
}

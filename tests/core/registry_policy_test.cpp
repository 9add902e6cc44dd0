// Automatic Updates policy values and the Microsoft Update registration.
#include <gtest/gtest.h>

#include "log/w3c_log.h"
#include "platform/host.h"
#include "support/test_machine.h"
#include "wuenv/environment.h"
#include "wuenv/registry_policy.h"

using kpmtest::at;
using kpmtest::TestMachine;

namespace {

const std::string kAU = "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\WindowsUpdate\\Auto Update]\r\n";
const std::string kSvc = "[HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Services\\wuauserv]\r\n";
const std::string kSC32 = "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Wow6432Node\\Microsoft\\Security Center]\r\n";

struct PolicyRun {
    std::vector<std::string> log;
    std::string registry;
};

PolicyRun runAutoUpdateReg(const std::string& extraRegistry, const std::string& osName) {
    TestMachine m;
    m.setRegistry(TestMachine::agentRegistry() + extraRegistry);
    m.open(at("2026-11-15T16:10:00"));
    kpm::OpenW3CLog();
    kpm::environment.OSProductName = osName;
    kpm::AutoUpdateReg();
    m.close();
    return {m.logMessages(), m.registryText()};
}

bool contains(const std::string& hay, const std::string& needle) { return hay.find(needle) != std::string::npos; }

}  // namespace

TEST(AutoUpdatePolicy, ValuesAndTheirOutcomes) {
    const std::string au = "SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\WindowsUpdate\\Auto Update";
    const std::string svc = "SYSTEM\\CurrentControlSet\\Services\\wuauserv";
    PolicyRun r = runAutoUpdateReg(kAU + "\"AUOptions\"=dword:00000001\r\n\r\n" + kSvc +
                                       "\"Start\"=\"3\"\r\n\r\n" + kSC32 + "\r\n",
                                   "Windows 7 Professional");
    EXPECT_EQ(r.log, (std::vector<std::string>{
                         "ModMain|SetRegDwordValue64|INFO|Modifying Registry Values|AUOptions||",
                         "ModMain|SetRegDwordValue64|INFO|REGISTRY VALUE ALREADY UPDATED |AUOptions|" + au + "|",
                         "ModMain|SetRegDwordValue64|INFO|Successfully modified Registry Values|AUOptions|" + au + "|1",
                         "ModMain|SetRegDwordValue|INFO|Modifying Registry Values|Start||",
                         "ModMain|SetRegDwordValue|INFO|REGISTRY VALUE IS CORRUPTED|" + svc + "||",
                         "ModMain|SetRegDwordValue|INFO|REGISTRY VALUE TURNED OFF |Start|" + svc + "|",
                         "ModMain|SetRegDwordValue|INFO|Successfully modified Registry Values|Start|" + svc + "|2",
                     }));
    // The repair leaves a subkey named like the value beside the DWORD it writes.
    EXPECT_TRUE(contains(r.registry, "\"Start\"=dword:00000002"));
    EXPECT_TRUE(contains(r.registry, "[HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Services\\wuauserv\\Start]"));
    EXPECT_FALSE(contains(r.registry, "UpdatesDisableNotify"));  // not on Windows 7
}

// Security Center's notice is turned off on XP and Vista only (XP: the policy contract).
TEST(AutoUpdatePolicy, OperatingSystemsAndViews) {
    for (const auto& [os, securityCenter] : {std::pair{"Windows Vista (TM) Business", true}, {"Windows 10 Pro", false}}) {
        SCOPED_TRACE(os);
        PolicyRun r = runAutoUpdateReg(kAU + "\"AUOptions\"=dword:00000004\r\n\r\n" + kSC32 + "\r\n", os);
        // AUOptions goes through the 64-bit view: the real key, not Wow6432Node.
        EXPECT_TRUE(contains(r.registry, kAU + "\"AUOptions\"=dword:00000001"));
        EXPECT_FALSE(contains(r.registry, "Wow6432Node\\Microsoft\\Windows\\CurrentVersion\\WindowsUpdate"));
        EXPECT_EQ(contains(r.registry, kSC32 + "\"UpdatesDisableNotify\"=dword:00000001"), securityCenter);
    }
}

TEST(AutoUpdatePolicy, NothingWrittenWhenTheRegistryIsLockedOrTheKeyMissing) {
    PolicyRun locked = runAutoUpdateReg(
        "[HKEY_CURRENT_USER\\Software\\Microsoft\\Windows\\CurrentVersion\\Policies\\System]\r\n"
        "\"DisableRegistryTools\"=dword:00000001\r\n\r\n" + kAU + "\"AUOptions\"=dword:00000004\r\n\r\n",
        "Windows 7");
    EXPECT_EQ(locked.log, (std::vector<std::string>{"ModAutoUpdService|AutoUpdateReg|ERROR|REGISTRY NOT EDITABLE.|||"}));
    EXPECT_TRUE(contains(locked.registry, "\"AUOptions\"=dword:00000004"));

    // No policy keys at all: each write stops at its key, silently.
    PolicyRun missing = runAutoUpdateReg("", "Windows 7");
    EXPECT_EQ(missing.log, (std::vector<std::string>{
                               "ModMain|SetRegDwordValue64|INFO|Modifying Registry Values|AUOptions||",
                               "ModMain|SetRegDwordValue|INFO|Modifying Registry Values|Start||",
                           }));
    EXPECT_FALSE(contains(missing.registry, "AUOptions"));
}

TEST(AutoUpdatePolicy, RegistryReadsByType) {
    TestMachine m;
    m.setRegistry(TestMachine::agentRegistry() +
                  "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Wow6432Node\\T]\r\n\"s\"=\"text\"\r\n\"d\"=dword:0000002a\r\n"
                  "\"b\"=hex:41,42\r\n\"e\"=hex(2):25,00\r\n\r\n");
    m.open(at("2026-11-15T16:10:00"));
    using platform::Hive;
    EXPECT_EQ(kpm::RegQueryStringValue(Hive::LocalMachine, "SOFTWARE\\T", "s"), "text");
    EXPECT_EQ(kpm::RegQueryStringValue(Hive::LocalMachine, "SOFTWARE\\T", "d"), "42");
    EXPECT_EQ(kpm::RegQueryStringValue(Hive::LocalMachine, "SOFTWARE\\T", "b"), "AB");
    EXPECT_EQ(kpm::RegQueryStringValue(Hive::LocalMachine, "SOFTWARE\\T", "e"), "");
    EXPECT_EQ(kpm::RegQueryStringValue(Hive::LocalMachine, "SOFTWARE\\T", "missing"), "");
    EXPECT_EQ(kpm::RegQueryStringValue(Hive::LocalMachine, "SOFTWARE\\Nothing", "s"), "");
}

TEST(MicrosoftUpdateRegistration, PendingKeysOnVistaAnd2008Only) {
    struct Case {
        const char* caption;
        bool pending;
    };
    const Case cases[] = {
        {"Microsoft Windows Vista Business", true},
        {"Vista Business", false},  // "Vista" must not come first
        {"Microsoft Windows Server 2008 R2 Standard", true},
        {"Microsoft Windows 7 Professional", false},
    };
    const std::string pendingKey =
        "SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\WindowsUpdate\\PendingServiceRegistration\\"
        "7971f918-a847-4430-9279-4a52d1efe18d";
    for (const auto& c : cases) {
        SCOPED_TRACE(c.caption);
        TestMachine m;
        m.open(at("2026-11-15T16:10:00"));
        kpm::OpenW3CLog();
        kpm::environment.OSName = c.caption;
        kpm::subWUMSSwitch();
        // Written through the 32-bit view, as strings without a terminating zero.
        std::unique_ptr<platform::RegKey> key;
        bool written = platform::registry().openKey(platform::Hive::LocalMachine, pendingKey,
                                                    platform::regaccess::Read, platform::RegView::Default,
                                                    key) == platform::regerr::Success;
        EXPECT_EQ(written, c.pending);
        if (written) {
            platform::RegValue id;  // the texts: the policy contract
            ASSERT_EQ(key->queryValue("ClientApplicationID", id), platform::regerr::Success);
            EXPECT_EQ(std::string(id.data.begin(), id.data.end()), "My App");
            EXPECT_EQ(id.type, platform::regtype::String);
            key.reset();
            std::unique_ptr<platform::RegKey> view64;
            EXPECT_NE(platform::registry().openKey(platform::Hive::LocalMachine, pendingKey, platform::regaccess::Read,
                                                   platform::RegView::View64, view64),
                      platform::regerr::Success);
        }
        m.close();
        auto log = m.logMessages();
        EXPECT_EQ(log.back(), "ModMSUpdate|subWUMSSwitch|INFO|Updating Values to Registry for Microsoft Update.|||");
        EXPECT_EQ(log.size(), c.pending ? 3u : 1u);
        const std::string record = kpmtest::readHostFile(m.root() / "update-services.ini");
        EXPECT_TRUE(contains(record, "ClientApplicationID=My App"));
        EXPECT_TRUE(contains(record, "7971f918-a847-4430-9279-4a52d1efe18d"));
        EXPECT_TRUE(contains(record, "Flags=7"));
    }
}

TEST(MicrosoftUpdateRegistration, MissingServiceManagerIsLogged) {
    TestMachine m;
    m.setMachineIni(
        "[Machine]\r\nExePath=C:\\Program Files\\VORN\\VORNMobile\\BaseComponents\\PatchManagement\\KPMDwld.exe\r\n"
        "[Classes]\r\nMicrosoft.Update.ServiceManager=missing\r\n");
    m.open(at("2026-11-15T16:10:00"));
    kpm::OpenW3CLog();
    kpm::subWUMSSwitch();
    m.close();
    // Every statement runs on after the failed creation; the last error is the one reported.
    EXPECT_EQ(m.logMessages().back(),
              "ModMSUpdate|subWUMSSwitch|ERROR|At subWUMSSwitch.|91|Object variable or With block variable not set|");
}

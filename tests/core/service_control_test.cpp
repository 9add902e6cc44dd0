// The Windows Update service check and the control actions on the simulated
// service control manager: log lines, the registry, the service's state as
// machine.ini keeps it, and the simulated time the waits took.
#include <gtest/gtest.h>

#include "log/w3c_log.h"
#include "platform/host.h"
#include "support/test_machine.h"
#include "wuenv/registry_policy.h"
#include "wuenv/service_control.h"

using kpmtest::TestMachine;

namespace {

const char* const kServiceKey = "SYSTEM\\CurrentControlSet\\Services\\wuauserv";

// A machine whose wuauserv key holds `startLine` (no key when it is empty)
// and whose machine.ini has `extraIni` appended; open, with the log open and
// the service key set as AutoUpdateReg sets it.
void prepare(TestMachine& m, const std::string& startLine, const std::string& extraIni) {
    if (!startLine.empty())
        m.setRegistry(TestMachine::agentRegistry() + "[HKEY_LOCAL_MACHINE\\" + kServiceKey + "]\r\n" + startLine +
                      "\r\n");
    m.setMachineIni(kpmtest::readHostFile(m.root() / "machine.ini") + extraIni);
    m.open(kpmtest::at("2026-11-15T16:10:00"));
    kpm::OpenW3CLog();
    kpm::policyKeys.ServiceKey = kServiceKey;
}

// The service's line in machine.ini, "" when it has none.
std::string serviceLine(const TestMachine& m, const std::string& name) {
    std::string text = kpmtest::readHostFile(m.root() / "machine.ini");
    size_t at = text.find("\n" + name + "=");
    if (at == std::string::npos) return "";
    size_t end = text.find_first_of("\r\n", at + 1);
    return text.substr(at + 1, end - at - 1);
}

int64_t clockSeconds() { return platform::toSeconds(platform::clock().now()); }

}  // namespace

TEST(ServiceCheck, StartTypeAndStateDecideWhatIsDone) {
    const std::string head = "ModAutoUpdService|chkAutomaticUpdateService|";
    const std::vector<std::string> automatic = {head + "INFO|Automatic Update Service|2||",
                                                head + "INFO|Automatic Update Service startup type is Automatic|||",
                                                head + "INFO|Starting Automatic Update Service|||"};
    auto with = [](std::vector<std::string> lines, const std::vector<std::string>& more) {
        lines.insert(lines.end(), more.begin(), more.end());
        return lines;
    };
    const std::string svc = kServiceKey;
    const std::string notAutomatic = head + "ERROR|Automatic Update Service cannot be set to automatic|||";
    struct Case {
        const char* name;
        std::string startLine, ini;
        std::vector<std::string> log;
        std::string lineAfter;  // wuauserv's line in machine.ini afterwards
        int64_t seconds;        // simulated time the check took
        std::string registryHas;
    };
    const Case cases[] = {
        {"stopped is started", "\"Start\"=dword:00000002", "[Services]\r\nwuauserv=stopped\r\n", automatic,
         "wuauserv=running", 10, ""},
        {"paused is continued", "\"Start\"=dword:00000002", "[Services]\r\nwuauserv=paused\r\n", automatic,
         "wuauserv=running", 2, ""},
        {"running is left alone", "\"Start\"=dword:00000002", "[Services]\r\nwuauserv=running\r\n",
         with(automatic, {head + "INFO|Service Already running|wuauserv||"}), "wuauserv=running", 0, ""},
        // Neither paused nor running: a start is issued, and refused five times.
        {"start pending gets a start", "\"Start\"=dword:00000002", "[Services]\r\nwuauserv=startpend\r\n",
         automatic, "wuauserv=startpend", 10, ""},
        {"five failed starts", "\"Start\"=dword:00000002", "[Services]\r\nwuauserv=stopped, failstarts=6\r\n",
         automatic, "wuauserv=stopped, failstarts=1", 10, ""},
        {"manager refuses access", "\"Start\"=dword:00000002",
         "[Services]\r\nwuauserv=stopped\r\n[ServiceManager]\r\nAccess=none\r\n", automatic, "wuauserv=stopped", 0,
         ""},
        // Start values stored as text are read as text, trimmed.
        {"start as text", "\"Start\"=\" 2 \"", "[Services]\r\nwuauserv=stopped\r\n", automatic, "wuauserv=running",
         10, ""},
        {"manual is set to automatic, not started", "\"Start\"=dword:00000003", "[Services]\r\nwuauserv=stopped\r\n",
         {head + "INFO|Automatic Update Service|3||", "ModMain|SetRegDwordValue|INFO|Modifying Registry Values|Start||",
          "ModMain|SetRegDwordValue|INFO|UPDATED REGISTRY VALUE|Start|" + svc + "|",
          "ModMain|SetRegDwordValue|INFO|Successfully modified Registry Values|Start|" + svc + "|2", notAutomatic},
         "wuauserv=stopped", 0, "\"Start\"=dword:00000002"},
        // No value at all: the write fails at its key, and the ERROR line comes all the same.
        {"no service key", "", "[Services]\r\nwuauserv=stopped\r\n",
         {head + "INFO|Automatic Update Service|||", "ModMain|SetRegDwordValue|INFO|Modifying Registry Values|Start||",
          notAutomatic},
         "wuauserv=stopped", 0, ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        TestMachine m;
        prepare(m, c.startLine, c.ini);
        const int64_t before = clockSeconds();
        EXPECT_TRUE(kpm::chkAutomaticUpdateService());
        EXPECT_EQ(clockSeconds() - before, c.seconds);
        m.close();
        EXPECT_EQ(m.logMessages(), c.log);
        EXPECT_EQ(serviceLine(m, "wuauserv"), c.lineAfter);
        if (!c.registryHas.empty()) {
            EXPECT_NE(m.registryText().find(c.registryHas), std::string::npos);
        }
    }
}

TEST(ServiceCheck, ControlActions) {
    struct Case {
        int16_t action;
        std::string state, startLine;
        bool result;
        std::string lineAfter;
        int64_t seconds;
    };
    const std::string automatic = "\"Start\"=dword:00000002";
    const Case cases[] = {
        {0, "running", automatic, false, "wuauserv=running", 0},
        {6, "running", automatic, false, "wuauserv=running", 0},
        {1, "stopped", automatic, true, "wuauserv=running", 10},
        {1, "stopped", "\"Start\"=dword:00000004", false, "wuauserv=stopped", 10},  // disabled: five refusals
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
        SCOPED_TRACE(std::to_string(c.action) + " on " + c.state + " " + c.startLine);
        TestMachine m;
        prepare(m, c.startLine, "[Services]\r\nwuauserv=" + c.state + "\r\n");
        const int64_t before = clockSeconds();
        EXPECT_EQ(kpm::fncUpdSetService("wuauserv", c.action, ""), c.result);
        EXPECT_EQ(clockSeconds() - before, c.seconds);
        m.close();
        EXPECT_EQ(serviceLine(m, "wuauserv"), c.lineAfter);
        EXPECT_TRUE(m.logMessages().empty());  // the actions never log
    }
}

TEST(ServiceCheck, StatesOutliveThePass) {
    TestMachine m;
    prepare(m, "", "[Services]\r\nBITS=stopped\r\nwuauserv=paused ; kept as is\r\n");
    EXPECT_TRUE(kpm::EnumUpdSystemServices("WUAUSERV", "paused", ""));
    EXPECT_FALSE(kpm::EnumUpdSystemServices("wuauserv", "Paused", ""));
    EXPECT_TRUE(kpm::fncUpdSetService("wuauserv", 5, ""));
    m.close();
    EXPECT_EQ(serviceLine(m, "wuauserv"), "wuauserv=running ; kept as is");
    EXPECT_EQ(serviceLine(m, "BITS"), "BITS=stopped");
    // The next pass on the folder sees the state this one left.
    m.open(kpmtest::at("2026-11-15T17:00:00"));
    EXPECT_TRUE(kpm::EnumUpdSystemServices("wuauserv", "running", ""));
}

// Whole passes: the ways a pass starts, stops early, and ends.
#include <gtest/gtest.h>

#include "support/test_machine.h"

using kpmtest::at;
using kpmtest::TestMachine;

namespace {

const char* kNow = "2026-11-15T16:10:00";
const char* kStamp = "11/15/2026 4:10:00 PM";

std::vector<std::string> head(const std::vector<std::string>& v, size_t n) {
    return {v.begin(), v.begin() + static_cast<long>(std::min(n, v.size()))};
}

}  // namespace

TEST(Pass, WritesHeaderAndStartupEntriesOfANewLog) {
    TestMachine m;
    ASSERT_EQ(m.runPass(at(kNow)), 0);

    auto lines = m.logLines();
    ASSERT_GE(lines.size(), 5u);
    EXPECT_EQ(lines[0], "#Software: VORN.AgentMonitoring.KPMDwld");
    EXPECT_EQ(lines[1], "#Version: 5.0.19");
    EXPECT_EQ(lines[2], std::string("#Date: ") + kStamp);
    EXPECT_EQ(lines[3], "#Fields: dtime\tform\tmodule\ttype\tval1\tval2\tval3");
    EXPECT_EQ(lines[4], std::string(kStamp) + "\tmodMain\tMain\tINFO\t5.0.19\t\t\t");

    const std::vector<std::string> expected = {
        "modMain|Main|INFO|5.0.19|||",
        "ModMain|InitializeEXE|INFO|" + std::string(70, '*') + "|||",
        "ModMain|InitializeEXE|INFO|Application started|||",
        "ModMain|InitializeEXE|INFO|Registry reading start.|||",
        "ModMain|InitializeEXE|INFO|VornMobile installation path |C:\\Program Files\\VORN\\VORNMobile||",
        "ModMain|InitializeEXE|INFO|Registry reading complete|||",
        "ModMain|InitializeEXE|INFO|Reading VORNMobile.INI start.|||",
        "ModMain|InitializeEXE|INFO|Reading VORNMobile.INI complete.|||",
    };
    EXPECT_EQ(head(m.logMessages(), expected.size()), expected);
    EXPECT_EQ(m.logMessages().back(), "ModComman|CloseAll|INFO|Application stopped.|||");
    for (const auto& e : m.logEntries()) EXPECT_EQ(e.size(), 8u) << e[0];
}

TEST(Pass, SecondPassAppendsWithoutASecondHeader) {
    TestMachine m;
    ASSERT_EQ(m.runPass(at(kNow)), 0);
    size_t first = m.logLines().size();
    ASSERT_EQ(m.runPass(at("2026-11-16T08:00:00")), 0);

    auto lines = m.logLines();
    int headers = 0;
    for (const auto& l : lines) headers += l.rfind("#", 0) == 0;
    ASSERT_EQ(headers, 4);
    ASSERT_GT(lines.size(), first);
    EXPECT_EQ(lines[2], std::string("#Date: ") + kStamp);  // when the file was started
    EXPECT_EQ(lines[first], "11/16/2026 8:00:00 AM\tmodMain\tMain\tINFO\t5.0.19\t\t\t");
}

TEST(Pass, EarlyEndsLeaveTheExpectedTrace) {
    struct Case {
        const char* name;
        std::string registry;
        bool installFolder;
        std::vector<std::string> lastEntries;  // empty: no log at all
    };
    const std::string noSite = "Windows Registry Editor Version 5.00\r\n\r\n"
                               "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Wow6432Node\\VORNOD]\r\n"
                               "\"InstallationPath\"=\"C:\\\\Program Files\\\\VORN\\\\VORNMobile\"\r\n"
                               "\"regID\"=\"R1\"\r\n\"MemberID\"=\"M1\"\r\n\"Type\"=\"W\"\r\n";
    const std::string noRegId = "Windows Registry Editor Version 5.00\r\n\r\n"
                                "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Wow6432Node\\VORNOD]\r\n"
                                "\"InstallationPath\"=\"C:\\\\Program Files\\\\VORN\\\\VORNMobile\"\r\n"
                                "\"regID\"=\"  \"\r\n\"SiteID\"=\"S1\"\r\n\"MemberID\"=\"M1\"\r\n\"Type\"=\"W\"\r\n";
    // The agent key in the 64-bit view only: a 32-bit program does not see it.
    const std::string wrongView = "Windows Registry Editor Version 5.00\r\n\r\n"
                                  "[HKEY_LOCAL_MACHINE\\SOFTWARE\\VORNOD]\r\n"
                                  "\"InstallationPath\"=\"C:\\\\Program Files\\\\VORN\\\\VORNMobile\"\r\n"
                                  "\"regID\"=\"R1\"\r\n\"SiteID\"=\"S1\"\r\n\"MemberID\"=\"M1\"\r\n\"Type\"=\"W\"\r\n";
    const Case cases[] = {
        {"no RegID", noRegId, true, {}},
        {"agent key only in the 64-bit view", wrongView, true, {}},
        {"install folder missing", TestMachine::agentRegistry(), false, {}},
        {"SiteID missing",
         noSite,
         true,
         {"ModMain|InitializeEXE|INFO|Registry reading start.|||",
          "ModMain|InitializeEXE|INFO|VornMobile installation path |C:\\Program Files\\VORN\\VORNMobile||"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        TestMachine m(true);
        m.setRegistry(c.registry);
        if (c.installFolder) m.makeFolder(kpmtest::kProgramFolder);
        EXPECT_EQ(m.runPass(at(kNow)), 0);
        if (c.lastEntries.empty()) {
            EXPECT_FALSE(m.exists(kpmtest::kLogPath));
            EXPECT_FALSE(m.exists(std::string(kpmtest::kProgramFolder) +
                                  "\\wppatchmanagementDownload_RegIDNotFound_patchlog.log"));
            continue;
        }
        auto msgs = m.logMessages();
        ASSERT_GE(msgs.size(), c.lastEntries.size());
        EXPECT_EQ(std::vector<std::string>(msgs.end() - static_cast<long>(c.lastEntries.size()), msgs.end()),
                  c.lastEntries);
        EXPECT_FALSE(m.exists(std::string(kpmtest::kInstallPath) + "BaseComponents\\PatchManagement\\DwldURL.txt"));
    }
}

TEST(Pass, PreviousInstanceInTheProcessListStopsAfterThreeEntries) {
    TestMachine m;
    m.setMachineIni(
        "[Machine]\r\nExePath=C:\\Program Files\\VORN\\VORNMobile\\BaseComponents\\PatchManagement\\KPMDwld.exe\r\n"
        "[Processes]\r\n1=explorer.exe\r\n2=kpmdwld.EXE\r\n");
    m.makeFolder(std::string(kpmtest::kProgramFolder) + "\\Temp");
    EXPECT_EQ(m.runPass(at(kNow)), 0);
    EXPECT_EQ(m.logMessages(), (std::vector<std::string>{
                                   "modMain|Main|INFO|5.0.19|||",
                                   "ModComman|AlreadyRunning|INFO|*************************|||",
                                   "ModComman|AlreadyRunning|INFO|Previous Instance Running|||",
                                   "ModComman|AlreadyRunning|INFO|*************************|||",
                               }));
    // The running copy's temporary files are not the second one's to clean.
    EXPECT_TRUE(m.exists(std::string(kpmtest::kProgramFolder) + "\\Temp"));
}

TEST(Pass, MissingAgentIniIsLoggedAndThePassGoesOn) {
    TestMachine m;
    m.removeFile(std::string(kpmtest::kInstallPath) + "VORNMobile.ini");
    EXPECT_EQ(m.runPass(at(kNow)), 0);
    auto msgs = m.logMessages();
    auto it = std::find(msgs.begin(), msgs.end(), "ModMain|InitializeEXE|ERROR|Reading VornMobile.ini|0||0");
    ASSERT_NE(it, msgs.end());
    EXPECT_EQ(*(it + 1), "ModMain|InitializeEXE|INFO|Reading VORNMobile.INI complete.|||");
    EXPECT_EQ(msgs.back(), "ModComman|CloseAll|INFO|Application stopped.|||");
}

TEST(Pass, AFailingStepGoesToTheHandlerAndStillClosesDown) {
    TestMachine m;
    // The download list cannot be created where a folder holds its name.
    m.makeFolder(std::string(kpmtest::kInstallPath) + "BaseComponents\\PatchManagement\\DwldURL.txt");
    EXPECT_EQ(m.runPass(at(kNow)), 0);
    auto entries = m.logEntries();
    auto msgs = m.logMessages();
    ASSERT_GE(msgs.size(), 2u);
    EXPECT_EQ(msgs.back(), "ModComman|CloseAll|INFO|Application stopped.|||");
    const auto& trap = entries[entries.size() - 2];
    EXPECT_EQ(trap[1], "ModMain");
    EXPECT_EQ(trap[3], "ERROR");
    EXPECT_EQ(trap[4], "In Main.");
    EXPECT_EQ(trap[5], "75");
    EXPECT_EQ(trap[6], "Path/File access error");
}

TEST(Pass, NormalEndRemovesTheTempFolder) {
    TestMachine m;
    const std::string temp = std::string(kpmtest::kProgramFolder) + "\\Temp";
    m.writeFile(temp + "\\PatchBlackList.txt", "KB1\r\n");
    m.writeFile(temp + "\\leftover\\other.bin", "x");
    EXPECT_EQ(m.runPass(at(kNow)), 0);
    EXPECT_FALSE(m.exists(temp));
    // The download list is recreated empty on every pass.
    EXPECT_EQ(m.read(std::string(kpmtest::kInstallPath) + "BaseComponents\\PatchManagement\\DwldURL.txt"), "");
}

TEST(Pass, AScheduleNestedTooDeepIsNotReadAndThePassEnds) {
    TestMachine m;
    std::string xml = "<patchmanagement>";
    for (int i = 0; i < 100000; ++i) xml += "<autopatchdeploy>";
    for (int i = 0; i < 100000; ++i) xml += "</autopatchdeploy>";
    m.writeFile(std::string(kpmtest::kProgramFolder) + "\\MSUpd.xml", xml + "</patchmanagement>");
    EXPECT_EQ(m.runPass(at(kNow)), 0);
    EXPECT_EQ(m.logMessages().back(), "ModComman|CloseAll|INFO|Application stopped.|||");
}

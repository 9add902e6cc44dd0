// The activity log: size rule, header, entry format, silent failures.
#include <gtest/gtest.h>

#include "log/w3c_log.h"
#include "platform/host.h"
#include "support/test_machine.h"

using kpmtest::at;
using kpmtest::TestMachine;

TEST(ActivityLog, SizeRuleAtOpen) {
    struct Case {
        size_t size;
        bool readOnly;
        bool startedAnew;
    };
    const Case cases[] = {
        {5000000, false, false},  // exactly the limit is kept
        {5000001, false, true},
        {5000001, true, true},  // read-only or not
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.size) + (c.readOnly ? " read-only" : ""));
        TestMachine m;
        std::string old(c.size, 'x');
        m.writeFile(kpmtest::kLogPath, old);
        if (c.readOnly) {
            m.open(at("2026-11-15T16:10:00")).files().setReadOnly(kpmtest::kLogPath, true);
            m.close();
        }
        m.open(at("2026-11-15T16:10:00"));
        kpm::OpenW3CLog();
        m.close();
        std::string text = m.read(kpmtest::kLogPath);
        if (c.startedAnew) {
            EXPECT_EQ(text.rfind("#Software: VORN.AgentMonitoring.KPMDwld\r\n#Version: 5.0.19\r\n", 0), 0u);
        } else {
            EXPECT_EQ(text, old);
        }
    }
}

TEST(ActivityLog, EntriesAreWrittenAsGivenWithSevenTabs) {
    TestMachine m;
    m.open(at("2026-03-07T09:05:07"));
    kpm::OpenW3CLog();
    kpm::WriteW3CLog("ModX", "proc", "INFO", "tab\there", "", "line\r\nbreak", "");
    kpm::WriteW3CLog("", "", "", "", "", "", "");
    m.close();
    auto lines = m.logLines();
    ASSERT_EQ(lines.size(), 4u + 3u);
    // Nothing is escaped: a tab or a line break in a value breaks the layout.
    EXPECT_EQ(lines[4], "3/7/2026 9:05:07 AM\tModX\tproc\tINFO\ttab\there\t\tline");
    EXPECT_EQ(lines[5], "break\t");
    EXPECT_EQ(lines[6], "3/7/2026 9:05:07 AM\t\t\t\t\t\t\t");
}

TEST(ActivityLog, LocaleGivesTheDateFormat) {
    TestMachine m;
    m.setMachineIni(
        "[Machine]\r\nExePath=C:\\Program Files\\VORN\\VORNMobile\\BaseComponents\\PatchManagement\\KPMDwld.exe\r\n"
        "[Locale]\r\nShortDate=dd.MM.yyyy\r\nLongTime=HH:mm:ss\r\n");
    m.open(at("2026-03-07T21:05:07"));
    kpm::OpenW3CLog();
    kpm::WriteW3CLog("M", "P", "INFO", "x");
    m.close();
    auto lines = m.logLines();
    EXPECT_EQ(lines[2], "#Date: 07.03.2026 21:05:07");
    EXPECT_EQ(lines[4], "07.03.2026 21:05:07\tM\tP\tINFO\tx\t\t\t");
}

TEST(ActivityLog, WritesFailSilently) {
    TestMachine m;
    m.open(at("2026-11-15T16:10:00"));
    kpm::WriteW3CLog("M", "P", "INFO", "before the log is open");
    kpm::OpenW3CLog();
    m.close();
    m.open(at("2026-11-15T16:10:00"));
    kpm::LogFilePath = kpmtest::kLogPath;
    platform::files().setReadOnly(kpmtest::kLogPath, true);
    EXPECT_NO_THROW(kpm::WriteW3CLog("M", "P", "INFO", "read-only file"));
    kpm::LogFilePath = "Q:\\nowhere\\x.log";
    EXPECT_NO_THROW(kpm::WriteW3CLog("M", "P", "INFO", "no such drive"));
    m.close();
    EXPECT_EQ(m.logLines().size(), 4u);
}

TEST(ActivityLog, EmptyInstallPathLogsUnderTheDriveRoot) {
    TestMachine m(true);
    m.setRegistry(TestMachine::agentRegistry().replace(
        TestMachine::agentRegistry().find("\"C:\\\\Program"), std::string("\"C:\\\\Program Files\\\\VORN\\\\VORNMobile\"").size(),
        "\"\""));
    m.open(at("2026-11-15T16:10:00"));
    kpm::OpenW3CLog();
    m.close();
    EXPECT_TRUE(m.exists("C:\\BaseComponents\\PatchManagement\\ApplicationLog\\wppatchmanagementDownload_R1_patchlog.log"));
}

// Opening machine folders, the facts of machine.ini, the mutex, started
// programs and the clock.
#include <gtest/gtest.h>

#include <tuple>

#include "platform/sim/sim_clock.h"
#include "platform/sim/sim_code_page.h"
#include "sim/sim_folder.h"

using platform::DateTime;
using platform::sim::MachineError;
using simtest::SimFolder;

TEST(SimMachineOpen, BrokenFoldersGiveOneLineErrors) {
    const std::string ok = simtest::kMinimalIni;
    struct Case {
        const char* file;  // written below the machine folder; nullptr: removed
        std::string text;
        const char* message;  // the start of the error
    } cases[] = {
        {nullptr, "", "machine folder not found: "},
        {nullptr, "machine.ini", "machine.ini not found: "},
        {"machine.ini", "[Machine]\r\nComputerName=x\r\n", "machine.ini: [Machine] ExePath= is missing"},
        {"machine.ini", "[Machine]\r\nExePath=D:\\App\\a.exe\r\n",
         "machine.ini: [Machine] ExePath=D:\\App\\a.exe is on drive D:, which has no folder drives/D"},
        {"machine.ini", "[Machine]\r\nExePath=a.exe\r\n",
         "machine.ini line 2: [Machine] ExePath=a.exe must be a full Windows path"},
        {"machine.ini", ok + "Now=tomorrow\r\n", "machine.ini line 3: [Machine] Now=tomorrow is not a date-time"},
        {"machine.ini", ok + "Is64BitOS=yes\r\n", "machine.ini line 3: [Machine] Is64BitOS=yes must be 0 or 1"},
        {"machine.ini", ok + "[OS]\r\nMajor=six\r\n", "machine.ini line 4: [OS] Major=six is not a whole number"},
        {"machine.ini", ok + "[Drives]\r\nC=100\r\n", "machine.ini line 4: [Drives] C=100 must be total_bytes,free_bytes"},
        {"machine.ini", ok + "[Drives]\r\nC=1,2\r\n", "machine.ini line 4: [Drives] C=1,2: free bytes exceed the total"},
        {"machine.ini", ok + "[Classes]\r\nX.Y=gone\r\n",
         "machine.ini line 4: [Classes] X.Y=gone must be missing, badmodule or ok"},
        {"machine.ini", ok + "[Classes]\r\nkDwnJob.JobDownload=missing\r\n",
         "machine.ini line 4: [Classes] kDwnJob.JobDownload: a maker's class is registered in registry.reg, not here"},
        {"machine.ini", ok + "oops\r\n", "machine.ini line 3: expected [Section] or key=value"},
        {"machine.ini", "a=1\r\n", "machine.ini line 1: key a= comes before any [Section]"},
        {"registry.reg", "nonsense\r\n", "registry.reg line 1: "},
    };
    for (const auto& c : cases) {
        SimFolder f;
        if (c.file) f.write(c.file, c.text);
        else std::filesystem::remove_all(c.text.empty() ? f.root() : f.root() / c.text);
        try {
            f.open();
            ADD_FAILURE() << c.message << ": opened";
        } catch (const MachineError& e) {
            std::string msg = e.what();
            EXPECT_EQ(msg.rfind(c.message, 0), 0u) << msg;
            EXPECT_EQ(msg.find('\n'), std::string::npos) << msg;
        }
    }
}

TEST(SimMachineSystem, FactsFromMachineIni) {
    SimFolder f(std::string(simtest::kMinimalIni) +
                "ComputerName=DEMO-PC\r\nSystemDirectory=D:\\Win\\system32\r\n"
                "[OS]\r\nMajor=10\r\nMinor=0\r\nBuild=19045\r\nServicePackMajor=2\r\nProductType=3\r\nCSDVersion=SP2\r\n");
    auto m = f.open();
    auto& sys = m->system();
    EXPECT_EQ(sys.exePath(), "C:\\Program Files\\VORN\\KPMDwld.exe");
    EXPECT_EQ(sys.systemDirectory(), "D:\\Win\\system32");
    platform::OsVersion v;
    ASSERT_TRUE(sys.getVersion(v));
    EXPECT_EQ(std::make_tuple(v.platformId, v.major, v.minor, v.build, v.servicePackMajor, v.productType, v.csdVersion),
              std::make_tuple(2u, 10u, 0u, 19045u, 2, 3, std::string("SP2")));

    // GetComputerNameA: too small leaves the buffer alone; exactly big enough fills it.
    std::string buffer(7, 'X');
    uint32_t size = 7;
    EXPECT_FALSE(sys.getComputerName(buffer, size));
    EXPECT_EQ(sys.lastError(), 111u);
    EXPECT_EQ(buffer, "XXXXXXX");
    buffer.assign(8, 'X');
    EXPECT_TRUE(sys.getComputerName(buffer, size));
    EXPECT_EQ(size, 7u);
    EXPECT_EQ(buffer, std::string("DEMO-PC") + '\0');
}

TEST(SimMachineSystem, SingleInstanceMutexIsPerMachineFolder) {
    SimFolder f;
    SimFolder other;
    auto first = f.open();
    EXPECT_TRUE(first->system().acquireSingleInstance("Global\\KPMDwld"));
    {
        auto second = f.open();
        EXPECT_FALSE(second->system().acquireSingleInstance("Global\\KPMDwld"));
        EXPECT_EQ(second->system().lastError(), 183u);
        EXPECT_TRUE(other.open()->system().acquireSingleInstance("Global\\KPMDwld"));
    }
    first.reset();
    EXPECT_TRUE(f.open()->system().acquireSingleInstance("Global\\KPMDwld"));
}

TEST(SimMachineSystem, StartHiddenRecordsProgramsThatExist) {
    SimFolder f;
    f.write("drives/C/Program Files/X/tool.exe", "");
    f.write("drives/C/Program Files/VORN/helper.exe", "");  // beside the executable
    auto m = f.open();
    struct Case {
        const char* command;
        bool starts;
    } cases[] = {
        {"regsvr32.exe -s \"C:\\x\\a.dll\"", true},  // every Windows has it
        {"cmd /c exit", true},
        {"\"C:\\Program Files\\X\\tool.exe\" /q", true},
        {"C:\\Program Files\\X\\tool /q", true},  // unquoted: the first prefix naming a file
        {"  helper", true},
        {"\"C:\\No Such\\tool.exe\"", false},
        {"nosuchprogram.exe /x", false},
        {"", false},
    };
    std::string logged;
    for (const auto& c : cases) {
        m->system().setLastError(0);
        EXPECT_EQ(m->system().startHidden(c.command), c.starts) << c.command;
        if (c.starts) logged += std::string(c.command) + "\n";
        else EXPECT_EQ(m->system().lastError(), 2u) << c.command;
    }
    EXPECT_EQ(f.read("started-processes.log"), logged);
}

TEST(SimMachineClock, SleepsAdvanceAFrozenClockAtOnce) {
    SimFolder f;
    auto m = f.open(/*frozen=*/true);
    auto& clock = m->clock();
    clock.sleep(999);
    EXPECT_EQ(clock.now(), (DateTime{2026, 11, 15, 16, 10, 0}));  // whole seconds
    clock.sleep(1);
    EXPECT_EQ(clock.now(), (DateTime{2026, 11, 15, 16, 10, 1}));
    clock.sleep(8 * 3600 * 1000);  // across midnight
    EXPECT_EQ(clock.now(), (DateTime{2026, 11, 16, 0, 10, 1}));
}

TEST(SimMachineClock, StartsFromMachineIni) {
    SimFolder f(std::string(simtest::kMinimalIni) + "Now=2026-02-28T23:59:59\r\n");
    DateTime start = platform::sim::SimMachine::open(f.root())->clock().now();  // a running clock
    EXPECT_GE(start, (DateTime{2026, 2, 28, 23, 59, 59}));
    EXPECT_LE(start, (DateTime{2026, 3, 1, 0, 0, 1}));
}

TEST(SimMachineClock, GeneralDateFollowsTheLocale) {
    struct Case {
        const char* locale;  // [Locale] lines
        DateTime t;
        const char* text;
    } cases[] = {
        {"", {2026, 1, 5, 0, 0, 0}, "1/5/2026 12:00:00 AM"},  // midnight keeps its time
        {"ShortDate=dd.MM.yyyy\r\nLongTime=HH:mm:ss\r\n", {2026, 3, 7, 8, 5, 4}, "07.03.2026 08:05:04"},
        {"ShortDate=yyyy-MM-dd\r\nLongTime=H:mm:ss\r\n", {2026, 3, 7, 8, 5, 4}, "2026-03-07 8:05:04"},
        {"ShortDate=dd/MM/yy\r\nLongTime=hh:mm:ss tt\r\nAMDesignator=a.m.\r\nPMDesignator=p.m.\r\n",
         {2026, 3, 7, 18, 5, 4}, "07/03/26 06:05:04 p.m."},
        {"ShortDate=ddd d MMM yyyy\r\nLongTime=h 'h' mm t\r\n", {2026, 11, 15, 16, 10, 36},
         "Sun 15 Nov 2026 4 h 10 P"},
        {"ShortDate=dddd, MMMM d, yyyy\r\nLongTime='it''s' HH:mm\r\n", {2026, 11, 15, 16, 10, 36},
         "Sunday, November 15, 2026 it's 16:10"},
    };
    for (const auto& c : cases) {
        SimFolder f(std::string(simtest::kMinimalIni) + "[Locale]\r\n" + c.locale);
        EXPECT_EQ(f.open()->clock().generalDate(c.t), c.text) << c.locale;
    }
}

// 1255 and 1258 letters that an accent may follow: the C library holds them
// back until the text ends, and each must still read as its own letter.
TEST(SimMachineSystem, CodePagesWithCombiningAccentsReadEveryLetter) {
    struct Row {
        uint32_t codePage;
        std::string ansi;
        std::u16string wide;
    } rows[] = {
        {1255, "\xE0\xFA", u"\u05D0\u05EA"},  // Hebrew alef, tav
        {1258, "a\xFD", u"a\u01B0"},          // Vietnamese u with horn
        {1253, "\xD9", u"\u03A9"},
    };
    for (const auto& r : rows) EXPECT_EQ(r.wide, platform::sim::CodePage(r.codePage).toUtf16(r.ansi)) << r.codePage;
}

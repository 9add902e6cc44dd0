// Opening machine folders, the system facts, the mutex and the clock.
#include <gtest/gtest.h>

#include <functional>

#include "platform/errors.h"
#include "platform/sim/sim_clock.h"
#include "platform/sim/sim_machine.h"
#include "sim/sim_folder.h"

using platform::DateTime;
using platform::sim::MachineError;
using simtest::SimFolder;

TEST(SimMachineOpen, BrokenFoldersGiveOneLineErrors) {
    struct Case {
        const char* what;
        std::function<void(SimFolder&)> breakIt;
        const char* message;  // the start of the error
    } cases[] = {
        {"no folder", [](SimFolder& f) { std::filesystem::remove_all(f.root()); }, "machine folder not found: "},
        {"no machine.ini", [](SimFolder& f) { std::filesystem::remove(f.root() / "machine.ini"); },
         "machine.ini not found: "},
        {"no ExePath", [](SimFolder& f) { f.write("machine.ini", "[Machine]\r\nComputerName=x\r\n"); },
         "machine.ini: [Machine] ExePath= is missing"},
        {"ExePath on a drive without folder",
         [](SimFolder& f) { f.write("machine.ini", "[Machine]\r\nExePath=D:\\App\\a.exe\r\n"); },
         "machine.ini: [Machine] ExePath=D:\\App\\a.exe is on drive D:, which has no folder drives/D"},
        {"relative ExePath", [](SimFolder& f) { f.write("machine.ini", "[Machine]\r\nExePath=a.exe\r\n"); },
         "machine.ini line 2: [Machine] ExePath=a.exe must be a full Windows path"},
        {"bad Now",
         [](SimFolder& f) { f.write("machine.ini", std::string(simtest::kMinimalIni) + "Now=tomorrow\r\n"); },
         "machine.ini line 3: [Machine] Now=tomorrow is not a date-time"},
        {"bad Is64BitOS",
         [](SimFolder& f) { f.write("machine.ini", std::string(simtest::kMinimalIni) + "Is64BitOS=yes\r\n"); },
         "machine.ini line 3: [Machine] Is64BitOS=yes must be 0 or 1"},
        {"bad number",
         [](SimFolder& f) { f.write("machine.ini", std::string(simtest::kMinimalIni) + "[OS]\r\nMajor=six\r\n"); },
         "machine.ini line 4: [OS] Major=six is not a whole number"},
        {"bad drive space",
         [](SimFolder& f) { f.write("machine.ini", std::string(simtest::kMinimalIni) + "[Drives]\r\nC=100\r\n"); },
         "machine.ini line 4: [Drives] C=100 must be total_bytes,free_bytes"},
        {"free above total",
         [](SimFolder& f) { f.write("machine.ini", std::string(simtest::kMinimalIni) + "[Drives]\r\nC=1,2\r\n"); },
         "machine.ini line 4: [Drives] C=1,2: free bytes exceed the total"},
        {"bad class state",
         [](SimFolder& f) { f.write("machine.ini", std::string(simtest::kMinimalIni) + "[Classes]\r\nX.Y=gone\r\n"); },
         "machine.ini line 4: [Classes] X.Y=gone must be missing, badmodule or ok"},
        {"stray line", [](SimFolder& f) { f.write("machine.ini", std::string(simtest::kMinimalIni) + "oops\r\n"); },
         "machine.ini line 3: expected [Section] or key=value"},
        {"key before section", [](SimFolder& f) { f.write("machine.ini", "a=1\r\n"); },
         "machine.ini line 1: key a= comes before any [Section]"},
        {"bad registry", [](SimFolder& f) { f.write("registry.reg", "nonsense\r\n"); }, "registry.reg line 1: "},
    };
    for (const auto& c : cases) {
        SimFolder f;
        c.breakIt(f);
        try {
            f.open();
            ADD_FAILURE() << c.what << ": opened";
        } catch (const MachineError& e) {
            std::string msg = e.what();
            EXPECT_EQ(msg.rfind(c.message, 0), 0u) << c.what << ": " << msg;
            EXPECT_EQ(msg.find('\n'), std::string::npos) << c.what;
        }
    }
}

TEST(SimMachineSystem, FactsFromMachineIni) {
    SimFolder f(std::string(simtest::kMinimalIni) +
                "ComputerName=DEMO-PC\r\nSystemDirectory=D:\\Win\\system32\r\n"
                "[OS]\r\nMajor=10\r\nMinor=0\r\nBuild=19045\r\nServicePackMajor=0\r\nProductType=3\r\nCSDVersion=\r\n");
    auto m = f.open();
    auto& sys = m->system();
    EXPECT_EQ(sys.exePath(), "C:\\Program Files\\VORN\\KPMDwld.exe");
    EXPECT_EQ(sys.systemDirectory(), "D:\\Win\\system32");
    platform::OsVersion v;
    ASSERT_TRUE(sys.getVersion(v));
    EXPECT_EQ(v.platformId, 2u);
    EXPECT_EQ(v.major, 10u);
    EXPECT_EQ(v.minor, 0u);
    EXPECT_EQ(v.build, 19045u);
    EXPECT_EQ(v.servicePackMajor, 0);
    EXPECT_EQ(v.productType, 3);
    EXPECT_EQ(v.csdVersion, "");

    // GetComputerNameA: too small reports the size needed, including the NUL.
    std::string buffer(4, 'X');
    uint32_t size = 4;
    EXPECT_FALSE(sys.getComputerName(buffer, size));
    EXPECT_EQ(size, 8u);
    EXPECT_EQ(sys.lastError(), 111u);
    EXPECT_EQ(buffer, "XXXX");
    buffer.assign(8, 'X');
    size = 8;
    EXPECT_TRUE(sys.getComputerName(buffer, size));
    EXPECT_EQ(size, 7u);
    EXPECT_EQ(buffer, std::string("DEMO-PC") + '\0');

    sys.setLastError(1234);
    EXPECT_EQ(sys.lastError(), 1234u);
}

TEST(SimMachineSystem, SingleInstanceMutexIsPerMachineFolder) {
    SimFolder f;
    SimFolder other;
    auto first = f.open();
    EXPECT_TRUE(first->system().acquireSingleInstance("Global\\KPMDwld"));
    EXPECT_FALSE(first->system().acquireSingleInstance("Global\\KPMDwld"));
    EXPECT_TRUE(first->system().acquireSingleInstance("Another"));
    {
        auto second = f.open();
        EXPECT_FALSE(second->system().acquireSingleInstance("Global\\KPMDwld"));
        EXPECT_EQ(second->system().lastError(), 183u);
        auto elsewhere = other.open();
        EXPECT_TRUE(elsewhere->system().acquireSingleInstance("Global\\KPMDwld"));
    }
    first.reset();
    auto third = f.open();
    EXPECT_TRUE(third->system().acquireSingleInstance("Global\\KPMDwld"));
}

TEST(SimMachineSystem, StartHiddenLogsProgramsThatExist) {
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
        {"C:\\Program Files\\X\\none.exe", false},
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

TEST(SimMachineSystem, EndProcessThrowsProcessEnd) {
    SimFolder f;
    auto m = f.open();
    try {
        m->system().endProcess(7);
        ADD_FAILURE() << "endProcess returned";
    } catch (const platform::ProcessEnd& end) {
        EXPECT_EQ(end.exitCode, 7);
    }
}

TEST(SimMachineClock, SleepsAdvanceTheClockAtOnce) {
    SimFolder f;
    auto m = f.open(/*frozen=*/true);
    auto& clock = m->clock();
    EXPECT_EQ(clock.now(), (DateTime{2026, 11, 15, 16, 10, 0}));
    clock.sleep(999);
    EXPECT_EQ(clock.now(), (DateTime{2026, 11, 15, 16, 10, 0}));  // whole seconds
    clock.sleep(1);
    EXPECT_EQ(clock.now(), (DateTime{2026, 11, 15, 16, 10, 1}));
    clock.sleep(8 * 3600 * 1000);  // across midnight
    EXPECT_EQ(clock.now(), (DateTime{2026, 11, 16, 0, 10, 1}));
}

TEST(SimMachineClock, StartsFromMachineIniAndMovesWithRealTime) {
    SimFolder f(std::string(simtest::kMinimalIni) + "Now=2026-02-28T23:59:59\r\n");
    auto m = platform::sim::SimMachine::open(f.root());
    auto& clock = m->clock();
    DateTime start = clock.now();
    EXPECT_GE(start, (DateTime{2026, 2, 28, 23, 59, 59}));
    EXPECT_LE(start, (DateTime{2026, 3, 1, 0, 0, 1}));
    clock.sleep(60 * 1000);
    EXPECT_GE(clock.now(), (DateTime{2026, 3, 1, 0, 0, 59}));
}

TEST(SimMachineClock, GeneralDateFollowsTheLocale) {
    struct Case {
        const char* locale;  // [Locale] lines
        DateTime t;
        const char* text;
    } cases[] = {
        {"", {2026, 11, 15, 16, 10, 36}, "11/15/2026 4:10:36 PM"},
        {"", {2026, 1, 5, 0, 5, 9}, "1/5/2026 12:05:09 AM"},
        {"", {2026, 1, 5, 12, 0, 1}, "1/5/2026 12:00:01 PM"},
        {"", {2026, 1, 5, 0, 0, 0}, "1/5/2026 12:00:00 AM"},      // midnight keeps its time
        {"ShortDate=dd.MM.yyyy\r\nLongTime=HH:mm:ss\r\n", {2026, 3, 7, 8, 5, 4}, "07.03.2026 08:05:04"},
        {"ShortDate=yyyy-MM-dd\r\nLongTime=H:mm:ss\r\n", {2026, 3, 7, 18, 5, 4}, "2026-03-07 18:05:04"},
        {"ShortDate=dd/MM/yy\r\nLongTime=hh:mm:ss tt\r\nAMDesignator=a.m.\r\nPMDesignator=p.m.\r\n",
         {2026, 3, 7, 18, 5, 4}, "07/03/26 06:05:04 p.m."},
        {"ShortDate=ddd d MMM yyyy\r\nLongTime=h 'h' mm t\r\n", {2026, 11, 15, 16, 10, 36},
         "Sun 15 Nov 2026 4 h 10 P"},
        {"ShortDate=dddd, MMMM d, yyyy\r\nLongTime='it''s' HH:mm\r\n", {2026, 11, 15, 16, 10, 36},
         "Sunday, November 15, 2026 it's 16:10"},
    };
    for (const auto& c : cases) {
        SimFolder f(std::string(simtest::kMinimalIni) + "[Locale]\r\n" + c.locale);
        auto m = f.open();
        EXPECT_EQ(m->clock().generalDate(c.t), c.text) << c.locale;
    }
}

// fncCheckTime / fncCheckTimeTP against the window stored in "SchPatch.ini".
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "schedule/schedule_settings.h"
#include "schedule_fixture.h"

using schedtest::info;

namespace {

std::string section(const char* name, const std::string& dt, const std::string& from,
                    const std::string& to, const std::string& last) {
    return std::string("[") + name + "]\r\nFTIME=" + from + "\r\nToTime=" + to +
           "\r\nScheduleType=1\r\nMonthDateValue=\r\nMonthWeekValue=0\r\nDT=" + dt +
           "\r\nLDwnRDate=" + last + "\r\n";
}

const std::string kInside = "Agent time is the patch download time.";
const std::string kOutside = "Agent time is not in patch download time or download has been done for the day, ";
const std::string kDone = "Agent last patch download check time, ";

class WindowCheck : public schedtest::ScheduleFixture {};

TEST_F(WindowCheck, StoredWindowOfTheMicrosoftSchedule) {
    // The Microsoft record of 2026-11-16 unless another date is given.
    auto rec = [](const char* from, const char* to, std::string last = "", std::string dt = "2026-11-16") {
        return section("DowSchTime", dt, from, to, last);
    };
    const std::string done = "11/16/2026 09:30:00";
    struct Case {
        const char* why;
        std::string ini;  // empty: no "SchPatch.ini"
        const char* now;
        bool result, inWindow;
        std::vector<std::string> messages;  // INFO texts of "fncCheckTime"
        std::string lastAfter;              // "LDwnRDate" afterwards
    };
    const std::vector<Case> cases = {
        {"first run: no record", "", "2026-11-16T03:00:00", true, true, {}, ""},
        {"record without a date", rec("09:00", "17:00", "", ""), "2026-11-16T03:00:00", true, false, {}, ""},
        {"record of yesterday", rec("09:00", "17:00", "x", "2026-11-15"), "2026-11-16T03:00:00", true, false, {}, "x"},
        {"record date month first", rec("09:00", "17:00", "", "11/16/2026"), "2026-11-16T10:00:00", true, true, {kInside}, ""},
        {"unreadable record date", rec("09:00", "17:00", "", "soon"), "2026-11-16T10:00:00", false, false, {}, ""},
        {"from second", rec("09:00", "17:00"), "2026-11-16T09:00:00", false, false, {kOutside}, ""},
        {"to second", rec("09:00", "17:00"), "2026-11-16T17:00:00", false, false, {kOutside}, ""},
        {"already downloaded today", rec("09:00", "17:00", done), "2026-11-16T10:00:00", false, true, {kInside, kDone + done}, done},
        {"download of another day is cleared", rec("09:00", "17:00", "11/15/2026 09:30:00"), "2026-11-16T10:00:00", true, true, {kInside}, ""},
        // 22:00 to 06:00: the minute of the from time belongs to yesterday's window.
        {"late evening", rec("22:00", "06:00"), "2026-11-16T23:30:00", true, true, {kInside}, ""},
        {"early morning", rec("22:00", "06:00"), "2026-11-16T03:00:00", true, true, {kInside}, ""},
        {"from minute", rec("22:00", "06:00"), "2026-11-16T22:00:30", false, false, {kOutside}, ""},
        {"after the early window", rec("22:00", "06:00"), "2026-11-16T07:00:00", false, false, {kOutside}, ""},
        // Compared as text, 9:00 comes after 17:00: a window past midnight.
        {"9:00 to 17:00 in the evening", rec("9:00", "17:00"), "2026-11-16T18:00:00", true, true, {kInside}, ""},
        {"empty times", rec("", ""), "2026-11-16T10:00:00", false, false, {}, ""},
        {"third-party record only", section("TPDowSchTime", "2026-11-16", "09:00", "17:00", ""), "2026-11-16T10:00:00", true, false, {}, ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.why) + " at " + c.now);
        machine.removeFile(schedtest::kSchPatch);
        if (!c.ini.empty()) machine.writeFile(schedtest::kSchPatch, c.ini);
        open(c.now);
        kpm::scheduleSettings.InDownloadWindow = !c.inWindow;

        EXPECT_EQ(kpm::fncCheckTime(), c.result);
        EXPECT_EQ(kpm::scheduleSettings.InDownloadWindow, c.inWindow);
        std::vector<std::string> expected;
        for (const auto& m : c.messages) expected.push_back(info("ModXML", "fncCheckTime", m));
        EXPECT_EQ(newLog(), expected);
        if (!c.ini.empty()) EXPECT_EQ(kpm::fncReadINI("DowSchTime", "LDwnRDate", schedtest::kSchPatch), c.lastAfter);
        else EXPECT_FALSE(machine.exists(schedtest::kSchPatch));
        machine.close();
    }
}

TEST_F(WindowCheck, ThirdPartyRecordUsesItsOwnSection) {
    // The Microsoft section says "downloaded today"; the third-party one has not.
    machine.writeFile(schedtest::kSchPatch,
                      section("DowSchTime", "2026-11-16", "09:00", "17:00", "11/16/2026 09:30:00") +
                          section("TPDowSchTime", "2026-11-16", "13:00", "14:00", "11/13/2026 13:30:00"));
    open("2026-11-16T13:30:00");
    EXPECT_TRUE(kpm::fncCheckTimeTP());
    EXPECT_TRUE(kpm::scheduleSettings.InDownloadWindow);
    EXPECT_EQ(newLog(), std::vector<std::string>{info("ModXML", "fncCheckTimeTP", kInside)});
    EXPECT_EQ(kpm::fncReadINI("TPDowSchTime", "LDwnRDate", schedtest::kSchPatch), "");
    EXPECT_EQ(kpm::fncReadINI("DowSchTime", "LDwnRDate", schedtest::kSchPatch), "11/16/2026 09:30:00");
}

}  // namespace

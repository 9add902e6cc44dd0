// fncCheckTime / fncCheckTimeTP against the window stored in "SchPatch.ini".
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "platform/errors.h"
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

const char* kInside = "Agent time is the patch download time.";
const char* kOutside = "Agent time is not in patch download time or download has been done for the day, ";
const char* kDone = "Agent last patch download check time, ";

class WindowCheck : public schedtest::ScheduleFixture {};

TEST_F(WindowCheck, StoredWindowOfTheMicrosoftSchedule) {
    struct Case {
        const char* why;
        std::optional<std::string> ini;  // nullopt: no "SchPatch.ini"
        const char* now;
        bool result, inWindow;
        std::vector<std::string> messages;  // INFO texts of "fncCheckTime"
        std::string lastAfter;              // "LDwnRDate" afterwards
    };
    const std::string day = "2026-11-16";
    const std::vector<Case> cases = {
        {"first run: no record", std::nullopt, "2026-11-16T03:00:00", true, true, {}, ""},
        {"record without a date", section("DowSchTime", "", "09:00", "17:00", ""), "2026-11-16T03:00:00", true, false, {}, ""},
        {"record of yesterday", section("DowSchTime", "2026-11-15", "09:00", "17:00", "11/15/2026 10:00:00"),
         "2026-11-16T03:00:00", true, false, {}, "11/15/2026 10:00:00"},
        {"record date month first", section("DowSchTime", "11/16/2026", "09:00", "17:00", ""),
         "2026-11-16T10:00:00", true, true, {kInside}, ""},
        {"unreadable record date", section("DowSchTime", "soon", "09:00", "17:00", ""), "2026-11-16T10:00:00", false, false, {}, ""},
        {"from second", section("DowSchTime", day, "09:00", "17:00", ""), "2026-11-16T09:00:00", false, false, {kOutside}, ""},
        {"one second in", section("DowSchTime", day, "09:00", "17:00", ""), "2026-11-16T09:00:01", true, true, {kInside}, ""},
        {"last second", section("DowSchTime", day, "09:00", "17:00", ""), "2026-11-16T16:59:59", true, true, {kInside}, ""},
        {"to second", section("DowSchTime", day, "09:00", "17:00", ""), "2026-11-16T17:00:00", false, false, {kOutside}, ""},
        {"outside names the last download", section("DowSchTime", day, "09:00", "17:00", "11/16/2026 09:30:00"),
         "2026-11-16T18:00:00", false, false, {std::string(kOutside) + "11/16/2026 09:30:00"}, "11/16/2026 09:30:00"},
        {"already downloaded today", section("DowSchTime", day, "09:00", "17:00", "11/16/2026 09:30:00"),
         "2026-11-16T10:00:00", false, true, {kInside, std::string(kDone) + "11/16/2026 09:30:00"}, "11/16/2026 09:30:00"},
        {"download of another day is cleared", section("DowSchTime", day, "09:00", "17:00", "11/15/2026 09:30:00"),
         "2026-11-16T10:00:00", true, true, {kInside}, ""},
        // 22:00 to 06:00: the minute of the from time belongs to yesterday's window.
        {"late evening", section("DowSchTime", day, "22:00", "06:00", ""), "2026-11-16T23:30:00", true, true, {kInside}, ""},
        {"early morning", section("DowSchTime", day, "22:00", "06:00", ""), "2026-11-16T03:00:00", true, true, {kInside}, ""},
        {"from minute", section("DowSchTime", day, "22:00", "06:00", ""), "2026-11-16T22:00:30", false, false, {kOutside}, ""},
        {"after the early window", section("DowSchTime", day, "22:00", "06:00", ""), "2026-11-16T07:00:00", false, false, {kOutside}, ""},
        // Compared as text, 9:00 comes after 17:00: a window past midnight.
        {"9:00 to 17:00 in the evening", section("DowSchTime", day, "9:00", "17:00", ""), "2026-11-16T18:00:00", true, true, {kInside}, ""},
        {"9:00 to 17:00 early", section("DowSchTime", day, "9:00", "17:00", ""), "2026-11-16T08:00:00", true, true, {kInside}, ""},
        {"unreadable from time", section("DowSchTime", day, "ab", "17:00", ""), "2026-11-16T10:00:00", false, false, {}, ""},
        {"empty times", section("DowSchTime", day, "", "", ""), "2026-11-16T10:00:00", false, false, {}, ""},
        {"third-party record only", section("TPDowSchTime", day, "09:00", "17:00", ""), "2026-11-16T10:00:00", true, false, {}, ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.why) + " at " + c.now);
        machine.removeFile(schedtest::kSchPatch);
        if (c.ini) machine.writeFile(schedtest::kSchPatch, *c.ini);
        open(c.now);
        kpm::scheduleSettings.InDownloadWindow = !c.inWindow;

        EXPECT_EQ(kpm::fncCheckTime(), c.result);
        EXPECT_EQ(kpm::scheduleSettings.InDownloadWindow, c.inWindow);
        std::vector<std::string> expected;
        for (const auto& m : c.messages) expected.push_back(info("ModXML", "fncCheckTime", m));
        EXPECT_EQ(newLog(), expected);
        if (c.ini) EXPECT_EQ(kpm::fncReadINI("DowSchTime", "LDwnRDate", schedtest::kSchPatch), c.lastAfter);
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

    open("2026-11-16T15:00:00");
    EXPECT_FALSE(kpm::fncCheckTimeTP());
    EXPECT_EQ(newLog(), std::vector<std::string>{info("ModXML", "fncCheckTimeTP", kOutside)});
}

TEST_F(WindowCheck, ThirdPartyDownloadDoneTodayEndsThePass) {
    machine.writeFile(schedtest::kSchPatch,
                      section("TPDowSchTime", "2026-11-16", "13:00", "14:00", "11/16/2026 13:05:00"));
    open("2026-11-16T13:30:00");
    EXPECT_THROW(kpm::fncCheckTimeTP(), platform::ProcessEnd);
    std::vector<std::string> log = newLog();
    ASSERT_GE(log.size(), 3u);
    EXPECT_EQ(log[0], info("ModXML", "fncCheckTimeTP", kInside));
    EXPECT_EQ(log[1], info("ModXML", "fncCheckTimeTP", std::string(kDone) + "11/16/2026 13:05:00"));
    EXPECT_EQ(log.back(), info("ModComman", "CloseAll", "Application stopped."));
}

}  // namespace

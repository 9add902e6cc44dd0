// GetScheduleDecision and its calendar helpers on the simulated clock.
#include <gtest/gtest.h>

#include <string>

#include "platform/errors.h"
#include "schedule/schedule_settings.h"
#include "schedule_fixture.h"

using kpmtest::at;

namespace {

class Decision : public schedtest::ScheduleFixture {
protected:
    std::string decide(const char* now, std::string from, std::string to, std::string days, std::string type,
                       std::string& dates, std::string week = "") {
        open(now);
        return kpm::GetScheduleDecision(from, to, days, type, dates, week);
    }
};

// 2026-11-15 is a Sunday (1), 2026-11-16 a Monday (2).
// November 2026: Sundays 1, 8, 15, 22, 29; Fridays 6, 13, 20, 27; the 30th a Monday.
TEST_F(Decision, Rows) {
    struct Row {
        const char* now;
        const char *from, *to, *days, *type, *dates, *week;
        const char* expected;
        const char* why;
    };
    const Row rows[] = {
        // The window's edges are outside it, to the second.
        {"2026-11-16T09:00:00", "09:00", "17:00", "2", "1", "", "0", "N", "the from second itself"},
        {"2026-11-16T17:00:00", "09:00", "17:00", "2", "1", "", "0", "N", "the to second itself"},
        {"2026-11-16T10:00:00", "", "17:00", "2", "1", "", "0", "N", "empty from time"},
        {"2026-11-16T10:00:00", "09:00", "", "2", "1", "", "0", "N", "empty to time"},
        // Weekday lists.
        {"2026-11-16T10:00:00", "09:00", "17:00", "2,4", "1", "", "0", "Y", "Monday listed"},
        {"2026-11-17T10:00:00", "09:00", "17:00", "2,4", "1", "", "0", "N", "Tuesday not listed"},
        {"2026-11-18T10:00:00", "09:00", "17:00", "2,4", "3", "", "0", "Y", "type 3 like type 1"},
        // Type 4 is not treated apart: an unknown type lets the time
        // decide as long as the day list is not empty.
        {"2026-11-17T10:00:00", "09:00", "17:00", "2", "4", "", "0", "Y", "type 4, any day"},
        {"2026-11-17T10:00:00", "09:00", "17:00", "", "4", "", "0", "N", "type 4, empty list"},
        {"2026-11-17T10:00:00", "09:00", "17:00", "2", "2", "", "", "Y", "monthly with nothing set"},
        // A window past midnight uses yesterday for the early hours.
        {"2026-11-16T23:30:00", "22:00", "06:00", "2", "1", "", "0", "Y", "Monday night, today's window"},
        {"2026-11-17T03:00:00", "22:00", "06:00", "2", "1", "", "0", "Y", "Tuesday early, Monday's window"},
        {"2026-11-16T03:00:00", "22:00", "06:00", "2", "1", "", "0", "N", "Monday early, Sunday not listed"},
        // Yesterday's own month decides: the 31st of a 30-day November runs on the 30th.
        {"2026-12-01T03:00:00", "22:00", "06:00", "", "2", "31", "", "Y", "Dec 1 early, Nov 30 scheduled"},
        // Monthly date lists.
        {"2026-12-31T10:00:00", "09:00", "17:00", "", "2", "31", "", "Y", "31 in a 31-day month"},
        {"2026-11-01T10:00:00", "09:00", "17:00", "", "2", "11,21", "", "N", "the 1st is not found in 11"},
        // The nth and the last weekday of the month.
        {"2026-11-22T16:10:00", "16:00", "17:00", "1", "2", "", "3", "N", "fourth Sunday, third wanted"},
        {"2026-11-29T16:10:00", "16:00", "17:00", "1", "2", "", "5", "Y", "fifth Sunday exists"},
        {"2026-11-30T16:10:00", "16:00", "17:00", "1", "2", "", "5", "N", "five Sundays: no fallback"},
        // Four Fridays only: "last week" falls on the month's last day, a Monday.
        {"2026-11-30T16:10:00", "16:00", "17:00", "6", "2", "", "5", "Y", "last-week fallback"},
        {"2026-11-27T16:10:00", "16:00", "17:00", "6", "2", "", "5", "N", "last Friday is not it"},
        // Week 0: the last such weekday of the month.
        {"2026-11-27T16:10:00", "16:00", "17:00", "6", "2", "", "0", "Y", "last Friday"},
        {"2026-11-20T16:10:00", "16:00", "17:00", "6", "2", "", "0", "N", "not the last Friday"},
    };
    for (const Row& r : rows) {
        std::string dates = r.dates;
        EXPECT_EQ(decide(r.now, r.from, r.to, r.days, r.type, dates, r.week), r.expected) << r.why << " at " << r.now;
    }
}

// Date lists name days the month may not have: only the first rule that fits
// rewrites them, so February turns 30,31 into 30,28 and never meets the 30th.
TEST_F(Decision, ClampingAppliesOnlyTheFirstRuleThatFits) {
    struct Case {
        const char *now, *dates, *rewritten;
    };
    for (const Case& c : {Case{"2026-11-30T10:00:00", "30,31", "30,30"}, Case{"2028-02-29T10:00:00", "30,31", "30,29"},
                          Case{"2026-02-28T10:00:00", "30,31", "30,28"}, Case{"2028-02-29T10:00:00", "30", "29"},
                          Case{"2026-02-28T10:00:00", "30", "28"}, Case{"2026-02-28T10:00:00", "29", "28"}}) {
        std::string dates = c.dates;
        EXPECT_EQ(decide(c.now, "09:00", "17:00", "", "2", dates), "Y") << c.dates << " at " << c.now;
        EXPECT_EQ(dates, c.rewritten) << c.dates << " at " << c.now;
    }
}

TEST_F(Decision, KeepsTheWindowStartAndDistance) {
    std::string dates;
    ASSERT_EQ(decide("2026-11-16T09:00:05", "09:00", "17:00", "2", "1", dates, "0"), "Y");
    EXPECT_EQ(kpm::scheduleSettings.WindowStart, at("2026-11-16T09:00:00"));
    EXPECT_EQ(kpm::scheduleSettings.WindowDistanceMs, 5000);

    ASSERT_EQ(decide("2026-11-17T01:00:00", "23:30", "02:00", "2", "1", dates, "0"), "Y");
    EXPECT_EQ(kpm::scheduleSettings.WindowStart, at("2026-11-16T23:30:00"));
    EXPECT_EQ(kpm::scheduleSettings.WindowDistanceMs, 5400000);
}

// What the decisions above do not reach: month names as text, and distances
// too long for 32 bits.
TEST(ScheduleCalendar, MonthNamesAndOverflow) {
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

}  // namespace

// GetScheduleDecision and its calendar helpers on the simulated clock.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/errors.h"
#include "schedule/schedule_settings.h"
#include "schedule_fixture.h"

using kpmtest::at;

namespace {

struct Row {
    const char* now;
    const char *from, *to, *days, *type, *dates, *week;
    const char* expected;
    const char* why;
};

class Decision : public schedtest::ScheduleFixture {
protected:
    std::string decide(const Row& r) {
        open(r.now);
        std::string from = r.from, to = r.to, days = r.days, type = r.type, dates = r.dates, week = r.week;
        return kpm::GetScheduleDecision(from, to, days, type, dates, week);
    }
    void check(const std::vector<Row>& rows) {
        for (const Row& r : rows) {
            SCOPED_TRACE(std::string(r.why) + " at " + r.now);
            EXPECT_EQ(decide(r), r.expected);
        }
    }
};

// 2026-11-15 is a Sunday (1), 2026-11-16 a Monday (2).
TEST_F(Decision, WindowEdgesAreStrictToTheSecond) {
    check({
        {"2026-11-16T09:00:00", "09:00", "17:00", "2", "1", "", "0", "N", "the from second itself"},
        {"2026-11-16T09:00:01", "09:00", "17:00", "2", "1", "", "0", "Y", "one second in"},
        {"2026-11-16T16:59:59", "09:00", "17:00", "2", "1", "", "0", "Y", "last second"},
        {"2026-11-16T17:00:00", "09:00", "17:00", "2", "1", "", "0", "N", "the to second itself"},
        {"2026-11-16T10:00:00", "", "17:00", "2", "1", "", "0", "N", "empty from time"},
        {"2026-11-16T10:00:00", "09:00", "", "2", "1", "", "0", "N", "empty to time"},
    });
}

TEST_F(Decision, WeekdayLists) {
    check({
        {"2026-11-16T10:00:00", "09:00", "17:00", "2,4", "1", "", "0", "Y", "Monday listed"},
        {"2026-11-17T10:00:00", "09:00", "17:00", "2,4", "1", "", "0", "N", "Tuesday not listed"},
        {"2026-11-18T10:00:00", "09:00", "17:00", "2,4", "3", "", "0", "Y", "type 3 like type 1"},
        // Type 4 gets no special treatment: an unknown type lets the time decide
        // as long as the day list is not empty.
        {"2026-11-17T10:00:00", "09:00", "17:00", "2", "4", "", "0", "Y", "type 4, any day"},
        {"2026-11-17T10:00:00", "09:00", "17:00", "", "4", "", "0", "N", "type 4, empty list"},
        {"2026-11-17T10:00:00", "09:00", "17:00", "2", "2", "", "", "Y", "monthly with nothing set"},
    });
}

TEST_F(Decision, WindowPastMidnightUsesYesterdayForTheEarlyHours) {
    check({
        {"2026-11-16T23:30:00", "22:00", "06:00", "2", "1", "", "0", "Y", "Monday night, today's window"},
        {"2026-11-17T03:00:00", "22:00", "06:00", "2", "1", "", "0", "Y", "Tuesday early, Monday's window"},
        {"2026-11-16T03:00:00", "22:00", "06:00", "2", "1", "", "0", "N", "Monday early, Sunday not listed"},
        {"2026-11-16T22:00:00", "22:00", "06:00", "2", "1", "", "0", "N", "from second itself"},
        // Yesterday's own month decides: the 31st of a 30-day November runs on the 30th.
        {"2026-12-01T03:00:00", "22:00", "06:00", "", "2", "31", "", "Y", "Dec 1 early, Nov 30 scheduled"},
    });
}

TEST_F(Decision, MonthlyDateListsClampedToTheMonth) {
    check({
        {"2026-11-30T10:00:00", "09:00", "17:00", "", "2", "31", "", "Y", "31 in a 30-day month"},
        {"2026-11-29T10:00:00", "09:00", "17:00", "", "2", "31", "", "N", "not the 29th"},
        {"2026-12-31T10:00:00", "09:00", "17:00", "", "2", "31", "", "Y", "31 in a 31-day month"},
        {"2026-02-28T10:00:00", "09:00", "17:00", "", "2", "29,31", "", "Y", "29,31 in 28-day February"},
        {"2028-02-29T10:00:00", "09:00", "17:00", "", "2", "31", "", "Y", "31 in 29-day February"},
        {"2028-02-28T10:00:00", "09:00", "17:00", "", "2", "30", "", "N", "29-day February: not the 28th"},
        {"2026-11-01T10:00:00", "09:00", "17:00", "", "2", "1,11", "", "Y", "the 1st, not a substring of 11"},
        {"2026-11-10T10:00:00", "09:00", "17:00", "", "2", "1,11", "", "N", "the 10th"},
    });
}

TEST_F(Decision, ClampingAppliesOnlyTheFirstRuleThatFits) {
    struct Case {
        const char* now;
        const char* dates;
        const char* rewritten;
    };
    for (const Case& c : {Case{"2026-02-28T10:00:00", "30,31", "30,28"},
                          Case{"2026-02-28T10:00:00", "29,31", "29,28"},
                          Case{"2028-02-29T10:00:00", "30,31", "30,29"},
                          Case{"2026-11-30T10:00:00", "30,31", "30,30"}}) {
        SCOPED_TRACE(std::string(c.dates) + " at " + c.now);
        open(c.now);
        std::string from = "09:00", to = "17:00", days = "", type = "2", dates = c.dates, week = "";
        EXPECT_EQ(kpm::GetScheduleDecision(from, to, days, type, dates, week), "Y");
        EXPECT_EQ(dates, c.rewritten);
        EXPECT_EQ(from, "0900");
        EXPECT_EQ(to, "1700");
    }
}

// November 2026: Sundays 1, 8, 15, 22, 29; Fridays 6, 13, 20, 27; the 30th a Monday.
// January 2027: Fridays 1, 8, 15, 22, 29.
TEST_F(Decision, NthAndLastWeekdayOfTheMonth) {
    check({
        {"2026-11-15T16:10:00", "16:00", "17:00", "1", "2", "", "3", "Y", "third Sunday"},
        {"2026-11-22T16:10:00", "16:00", "17:00", "1", "2", "", "3", "N", "fourth Sunday"},
        {"2026-11-29T16:10:00", "16:00", "17:00", "1", "2", "", "5", "Y", "fifth Sunday exists"},
        {"2026-11-30T16:10:00", "16:00", "17:00", "1", "2", "", "5", "N", "five Sundays: no fallback"},
        // Four Fridays only: "last week" falls on the month's last day, a Monday.
        {"2026-11-30T16:10:00", "16:00", "17:00", "6", "2", "", "5", "Y", "last-week fallback"},
        {"2026-11-27T16:10:00", "16:00", "17:00", "6", "2", "", "5", "N", "last Friday is not it"},
        {"2027-01-29T16:10:00", "16:00", "17:00", "6", "2", "", "5", "Y", "fifth Friday"},
        {"2027-01-31T16:10:00", "16:00", "17:00", "6", "2", "", "5", "N", "five Fridays: no fallback"},
        // Week 0: the last such weekday of the month.
        {"2026-11-27T16:10:00", "16:00", "17:00", "6", "2", "", "0", "Y", "last Friday"},
        {"2026-11-20T16:10:00", "16:00", "17:00", "6", "2", "", "0", "N", "not the last Friday"},
        {"2026-11-15T16:10:00", "16:00", "17:00", "x", "2", "", "3", "N", "weekday no number"},
    });
}

TEST_F(Decision, KeepsTheWindowStartAndDistance) {
    open("2026-11-16T09:00:05");
    std::string from = "09:00", to = "17:00", days = "2", type = "1", dates = "", week = "0";
    ASSERT_EQ(kpm::GetScheduleDecision(from, to, days, type, dates, week), "Y");
    EXPECT_EQ(kpm::scheduleSettings.WindowStart, at("2026-11-16T09:00:00"));
    EXPECT_EQ(kpm::scheduleSettings.WindowDistanceMs, 5000);

    open("2026-11-17T01:00:00");
    from = "23:30", to = "02:00";
    ASSERT_EQ(kpm::GetScheduleDecision(from, to, days, type, dates, week), "Y");
    EXPECT_EQ(kpm::scheduleSettings.WindowStart, at("2026-11-16T23:30:00"));
    EXPECT_EQ(kpm::scheduleSettings.WindowDistanceMs, 5400000);
}

TEST(ScheduleCalendar, CountsWeekdaysAndDistances) {
    // GetCountInMonth: the ordinal of the date among its weekday's days, 0 on another weekday.
    EXPECT_EQ(kpm::GetCountInMonth(at("2026-11-15T16:10:00"), 1), 3);
    EXPECT_EQ(kpm::GetCountInMonth(at("2026-11-29T23:59:59"), 1), 5);
    EXPECT_EQ(kpm::GetCountInMonth(at("2026-11-01T00:00:00"), 1), 1);
    EXPECT_EQ(kpm::GetCountInMonth(at("2026-11-15T00:00:00"), 2), 0);
    EXPECT_EQ(kpm::CountWeekdayInMonth("November", 2026, 1), 5);
    EXPECT_EQ(kpm::CountWeekdayInMonth("november", 2026, 6), 4);
    EXPECT_EQ(kpm::CountWeekdayInMonth("February", 2028, 3), 5);
    EXPECT_EQ(kpm::CountWeekdayInMonth("February", 2026, 3), 4);
    EXPECT_THROW(kpm::CountWeekdayInMonth("Smarch", 2026, 1), platform::ComError);

    EXPECT_EQ(kpm::GetMillisecondsBetween(at("2026-11-15T16:00:00"), at("2026-11-15T16:10:00")), 600000);
    EXPECT_EQ(kpm::GetMillisecondsBetween(at("2026-11-25T00:00:00"), at("2026-11-01T00:00:00")), 2073600000);
    try {
        kpm::GetMillisecondsBetween(at("2026-11-01T00:00:00"), at("2026-11-26T00:00:00"));
        ADD_FAILURE() << "25 days do not fit in 32 bits";
    } catch (const platform::ComError& e) {
        EXPECT_EQ(e.number(), platform::err::Overflow);
    }
}

}  // namespace

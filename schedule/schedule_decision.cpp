// GetScheduleDecision: is today (or, for a window past midnight, yesterday) a
// scheduled day, and does the present moment lie inside that day's window?
#include <cctype>

#include "platform/host.h"
#include "schedule/schedule_settings.h"
#include "schedule/schedule_text.h"

namespace kpm {

using platform::DateTime;
using namespace schedule_text;

namespace {

// Monthly date lists name days the month may not have; only the first rule
// that fits is applied (so February turns 30,31 into 30,28 and never meets the 30th).
std::string clampToMonth(const std::string& list, int lastDay) {
    auto has = [&](const char* d) { return list.find(d) != std::string::npos; };
    if (lastDay == 30 && has("31")) return replaceAll(list, "31", "30");
    if (lastDay == 29 && has("31")) return replaceAll(list, "31", "29");
    if (lastDay == 28 && has("31")) return replaceAll(list, "31", "28");
    if (lastDay == 29 && has("30")) return replaceAll(list, "30", "29");
    if (lastDay == 28 && has("30")) return replaceAll(list, "30", "28");
    if (lastDay == 28 && has("29")) return replaceAll(list, "29", "28");
    return list;
}

// Whether `day` is a scheduled day: the day's token searched in the list the
// schedule type calls for. Rewrites the month date value as the rules say.
bool isScheduledDay(const DateTime& day, const std::string& dayList, const std::string& type,
                    std::string& monthDate, const std::string& monthWeek) {
    const int lastDay = platform::daysInMonth(day.year, day.month);
    // A "last week" schedule in a month without a fifth such weekday falls on
    // the month's last day, whatever its weekday.
    if (type == "2" && monthWeek == "5" &&
        CountWeekdayInMonth(platform::monthName(day.month), day.year, textToInt(dayList)) != 5)
        monthDate = std::to_string(lastDay);

    const std::string weekdayToken = "," + std::to_string(platform::weekday(day)) + ",";
    std::string token, list = dayList;
    if (type == "1" || type == "3") {
        token = weekdayToken;
        list = "," + dayList + ",";
    } else if (type == "2" && !monthDate.empty()) {
        monthDate = clampToMonth(monthDate, lastDay);
        token = "," + std::to_string(day.day) + ",";
        list = "," + monthDate + ",";
    } else if (type == "2" && !monthWeek.empty() && monthWeek != "0") {
        if (GetCountInMonth(day, textToInt(dayList)) == textToInt(monthWeek))
            token = list = weekdayToken;
        else
            token = "100";
    } else if (type == "2" && monthWeek == "0") {
        const int wanted = textToInt(dayList);
        DateTime d{day.year, day.month, lastDay, 0, 0, 0};
        for (int step = 0; step < 7 && platform::weekday(d) != wanted; ++step)
            d = platform::addDays(d, -1);
        if (d == dateOnly(day))
            token = list = weekdayToken;
        else
            token = "100";
    }
    // An empty token is found in any non-empty list: then only the time decides.
    return !list.empty() && list.find(token) != std::string::npos;
}

// The window start as a date value; only a well-formed HHMM gives one.
void keepWindowStart(const DateTime& day, const std::string& from) {
    if (from.size() < 3 || from.size() > 4) return;
    for (char c : from)
        if (!std::isdigit(static_cast<unsigned char>(c))) return;
    int hhmm = std::stoi(from);
    DateTime start = dateOnly(day);
    start.hour = hhmm / 100;
    start.minute = hhmm % 100;
    if (platform::isValid(start)) scheduleSettings.WindowStart = start;
}

bool strictlyBetween(const std::string& start, const std::string& now, const std::string& end) {
    const double n = textToNumber(now);
    return textToNumber(start) < n && n < textToNumber(end);
}

}  // namespace

std::string GetScheduleDecision(std::string& fromTime, std::string& toTime, std::string& dayList,
                                std::string& scheduleType, std::string& monthDateValue,
                                std::string& monthWeekValue) {
    std::string result = "N";
    try {
        const std::string from0 = fromTime, to0 = toTime, days0 = dayList, type0 = scheduleType,
                          dates0 = monthDateValue, week0 = monthWeekValue;
        const DateTime now = platform::clock().now();
        const std::string nowStamp = stampYmdHms(now);
        if (fromTime.empty() || toTime.empty()) return result;
        fromTime = removeColons(fromTime);
        toTime = removeColons(toTime);

        const DateTime today = dateOnly(now);
        if (isScheduledDay(today, dayList, scheduleType, monthDateValue, monthWeekValue)) {
            const bool pastMidnight = textToNumber(toTime) < textToNumber(fromTime);
            const std::string start = stampYmd(today) + fromTime + "00";
            const std::string end =
                stampYmd(pastMidnight ? platform::addDays(today, 1) : today) + toTime + "00";
            keepWindowStart(today, fromTime);
            if (strictlyBetween(start, nowStamp, end)) {
                result = "Y";
                scheduleSettings.WindowDistanceMs = GetMillisecondsBetween(scheduleSettings.WindowStart, now);
                return result;
            }
        }

        fromTime = removeColons(from0);
        toTime = removeColons(to0);
        dayList = days0;
        scheduleType = type0;
        monthDateValue = dates0;
        monthWeekValue = week0;
        if (textToInt(fromTime) <= textToInt(toTime)) return result;

        // A window past midnight may have opened yesterday.
        const DateTime yesterday = platform::addDays(today, -1);
        if (isScheduledDay(yesterday, dayList, scheduleType, monthDateValue, monthWeekValue)) {
            const std::string start = stampYmd(yesterday) + fromTime + "00";
            const std::string end = stampYmd(today) + toTime + "00";
            keepWindowStart(yesterday, fromTime);
            if (strictlyBetween(start, nowStamp, end)) {
                result = "Y";
                scheduleSettings.WindowDistanceMs = GetMillisecondsBetween(scheduleSettings.WindowStart, now);
            }
        }
        return result;
    } catch (const std::exception&) {
        return result;
    }
}

}  // namespace kpm

// Counting weekdays in a month, and the distance kept for a matched window.
#include <cstdlib>

#include "platform/automation.h"
#include "platform/errors.h"
#include "schedule/schedule_settings.h"

namespace kpm {

using platform::DateTime;

int16_t GetCountInMonth(const DateTime& date, int weekday) {
    if (platform::weekday(date) != weekday) return 0;
    DateTime day{date.year, date.month, 1, 0, 0, 0};
    while (platform::weekday(day) != weekday) day = platform::addDays(day, 1);
    DateTime last{date.year, date.month, date.day, 0, 0, 0};
    int16_t count = 0;
    while (day <= last) {
        ++count;
        day = platform::addDays(day, 7);
    }
    return count;
}

int CountWeekdayInMonth(const std::string& monthName, int year, int weekday) {
    int month = 0;
    for (int m = 1; m <= 12 && month == 0; ++m)
        if (platform::iequals(monthName, platform::monthName(m)) ||
            platform::iequals(monthName, platform::monthShortName(m)))
            month = m;
    if (month == 0) throw platform::makeError(platform::err::TypeMismatch);
    int count = 0;
    for (int d = 1; d <= platform::daysInMonth(year, month); ++d)
        if (platform::weekday(DateTime{year, month, d, 0, 0, 0}) == weekday) ++count;
    return count;
}

int32_t GetMillisecondsBetween(const DateTime& a, const DateTime& b) {
    int64_t ms = std::llabs(platform::toSeconds(a) - platform::toSeconds(b)) * 1000;
    if (ms > INT32_MAX) throw platform::makeError(platform::err::Overflow);
    return static_cast<int32_t>(ms);
}

}  // namespace kpm

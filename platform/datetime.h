// Calendar arithmetic on local date-times (proleptic Gregorian, no time zone).
#pragma once

#include <cstdint>
#include <string>

namespace platform {

struct DateTime {
    int year = 1899, month = 12, day = 30;
    int hour = 0, minute = 0, second = 0;

    friend bool operator==(const DateTime&, const DateTime&) = default;
    friend auto operator<=>(const DateTime&, const DateTime&) = default;
};

int64_t daysFromCivil(int year, int month, int day);  // days since 1970-01-01
DateTime civilFromDays(int64_t days);                  // midnight of that day
int64_t toSeconds(const DateTime& t);                  // seconds since 1970-01-01 00:00:00
DateTime fromSeconds(int64_t seconds);
DateTime addDays(const DateTime& t, int64_t days);
DateTime addSeconds(const DateTime& t, int64_t seconds);
int weekday(const DateTime& t);  // 1 = Sunday ... 7 = Saturday
int daysInMonth(int year, int month);
bool isValid(const DateTime& t);
double toOleDate(const DateTime& t);  // days since 1899-12-30
DateTime fromOleDate(double d);

// "YYYY-MM-DDTHH:MM:SS" (also accepts a blank for the T); false when malformed.
bool parseIsoDateTime(const std::string& text, DateTime& out);
std::string formatIso(const DateTime& t);

// English month names, as the runtime's "mmmm" and "mmm" formats give them.
const char* monthName(int month);
const char* monthShortName(int month);

}  // namespace platform

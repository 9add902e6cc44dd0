#include "platform/datetime.h"

#include <cmath>
#include <cstdio>

namespace platform {

// Howard Hinnant's days_from_civil / civil_from_days.
int64_t daysFromCivil(int y, int m, int d) {
    y -= m <= 2;
    const int64_t era = (y >= 0 ? y : y - 399) / 400;
    const unsigned yoe = static_cast<unsigned>(y - era * 400);
    const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + static_cast<int64_t>(doe) - 719468;
}

DateTime civilFromDays(int64_t z) {
    z += 719468;
    const int64_t era = (z >= 0 ? z : z - 146096) / 146097;
    const unsigned doe = static_cast<unsigned>(z - era * 146097);
    const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const int64_t y = static_cast<int64_t>(yoe) + era * 400;
    const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const unsigned mp = (5 * doy + 2) / 153;
    const unsigned d = doy - (153 * mp + 2) / 5 + 1;
    const unsigned m = mp < 10 ? mp + 3 : mp - 9;
    DateTime t;
    t.year = static_cast<int>(y + (m <= 2));
    t.month = static_cast<int>(m);
    t.day = static_cast<int>(d);
    return t;
}

int64_t toSeconds(const DateTime& t) {
    return daysFromCivil(t.year, t.month, t.day) * 86400 + t.hour * 3600 + t.minute * 60 + t.second;
}

DateTime fromSeconds(int64_t s) {
    int64_t days = s >= 0 ? s / 86400 : -((-s + 86399) / 86400);
    int64_t rem = s - days * 86400;
    DateTime t = civilFromDays(days);
    t.hour = static_cast<int>(rem / 3600);
    t.minute = static_cast<int>(rem % 3600 / 60);
    t.second = static_cast<int>(rem % 60);
    return t;
}

DateTime addDays(const DateTime& t, int64_t days) { return fromSeconds(toSeconds(t) + days * 86400); }
DateTime addSeconds(const DateTime& t, int64_t s) { return fromSeconds(toSeconds(t) + s); }

int weekday(const DateTime& t) {
    int64_t d = daysFromCivil(t.year, t.month, t.day);  // 1970-01-01 was a Thursday (5)
    int64_t w = (d + 4) % 7;                            // 0 = Sunday
    if (w < 0) w += 7;
    return static_cast<int>(w) + 1;
}

int daysInMonth(int y, int m) {
    static const int len[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    if (m == 2 && ((y % 4 == 0 && y % 100 != 0) || y % 400 == 0)) return 29;
    return len[(m - 1) % 12];
}

bool isValid(const DateTime& t) {
    return t.year >= 100 && t.year <= 9999 && t.month >= 1 && t.month <= 12 && t.day >= 1 &&
           t.day <= daysInMonth(t.year, t.month) && t.hour >= 0 && t.hour < 24 && t.minute >= 0 &&
           t.minute < 60 && t.second >= 0 && t.second < 60;
}

static const int64_t kOleEpochDays = -25569;  // 1899-12-30 relative to 1970-01-01

double toOleDate(const DateTime& t) {
    double days = static_cast<double>(daysFromCivil(t.year, t.month, t.day) - kOleEpochDays);
    double frac = (t.hour * 3600 + t.minute * 60 + t.second) / 86400.0;
    // Before the epoch the fraction is added to the magnitude, as in OLE dates.
    return days >= 0 ? days + frac : days - frac;
}

DateTime fromOleDate(double d) {
    double whole = std::trunc(d);
    double frac = std::fabs(d - whole);
    int64_t secs = static_cast<int64_t>(std::llround(frac * 86400.0));
    DateTime t = civilFromDays(static_cast<int64_t>(whole) + kOleEpochDays);
    return addSeconds(t, secs);
}

bool parseIsoDateTime(const std::string& text, DateTime& out) {
    DateTime t;
    char sep = 0;
    int n = 0;
    if (std::sscanf(text.c_str(), "%4d-%2d-%2d%c%2d:%2d:%2d%n", &t.year, &t.month, &t.day, &sep,
                    &t.hour, &t.minute, &t.second, &n) != 7)
        return false;
    if ((sep != 'T' && sep != ' ') || static_cast<size_t>(n) != text.size() || !isValid(t))
        return false;
    out = t;
    return true;
}

std::string formatIso(const DateTime& t) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%04d-%02d-%02dT%02d:%02d:%02d", t.year, t.month, t.day, t.hour,
                  t.minute, t.second);
    return buf;
}

const char* monthName(int m) {
    static const char* names[] = {"January", "February", "March",     "April",   "May",      "June",
                                  "July",    "August",   "September", "October", "November", "December"};
    return names[(m - 1) % 12];
}

const char* monthShortName(int m) {
    static const char* names[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                  "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    return names[(m - 1) % 12];
}

}  // namespace platform

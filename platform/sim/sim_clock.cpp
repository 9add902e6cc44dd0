#include "platform/sim/sim_clock.h"

#include <ctime>

#include "platform/sim/sim_config.h"

namespace platform::sim {

namespace {

const char* const kDayNames[] = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                 "Thursday", "Friday", "Saturday"};

std::string twoDigits(int v) {
    std::string s = std::to_string(v);
    return s.size() < 2 ? "0" + s : s;
}

}  // namespace

std::string formatPicture(std::string_view picture, const DateTime& t, std::string_view am,
                          std::string_view pm) {
    std::string out;
    size_t i = 0;
    while (i < picture.size()) {
        char c = picture[i];
        if (c == '\'') {
            // A quoted literal; '' inside (or alone) is one quote.
            ++i;
            if (i < picture.size() && picture[i] == '\'') {
                out += '\'';
                ++i;
                continue;
            }
            while (i < picture.size()) {
                if (picture[i] == '\'') {
                    if (i + 1 < picture.size() && picture[i + 1] == '\'') {
                        out += '\'';
                        i += 2;
                        continue;
                    }
                    ++i;
                    break;
                }
                out += picture[i++];
            }
            continue;
        }
        if (std::string_view("dMyhHmstg").find(c) == std::string_view::npos) {
            out += c;
            ++i;
            continue;
        }
        size_t n = 1;
        while (i + n < picture.size() && picture[i + n] == c) ++n;
        i += n;
        const int hour12 = t.hour % 12 == 0 ? 12 : t.hour % 12;
        std::string_view designator = t.hour < 12 ? am : pm;
        switch (c) {
        case 'd':
            if (n == 1) out += std::to_string(t.day);
            else if (n == 2) out += twoDigits(t.day);
            else if (n == 3) out += std::string(kDayNames[weekday(t) - 1]).substr(0, 3);
            else out += kDayNames[weekday(t) - 1];
            break;
        case 'M':
            if (n == 1) out += std::to_string(t.month);
            else if (n == 2) out += twoDigits(t.month);
            else if (n == 3) out += monthShortName(t.month);
            else out += monthName(t.month);
            break;
        case 'y':
            if (n == 1) out += std::to_string(t.year % 100);
            else if (n == 2) out += twoDigits(t.year % 100);
            else out += std::to_string(t.year);
            break;
        case 'h': out += n == 1 ? std::to_string(hour12) : twoDigits(hour12); break;
        case 'H': out += n == 1 ? std::to_string(t.hour) : twoDigits(t.hour); break;
        case 'm': out += n == 1 ? std::to_string(t.minute) : twoDigits(t.minute); break;
        case 's': out += n == 1 ? std::to_string(t.second) : twoDigits(t.second); break;
        case 't':
            if (n == 1) out += designator.substr(0, 1);
            else out += designator;
            break;
        case 'g': out += "A.D."; break;
        }
    }
    return out;
}

DateTime hostLocalTime() {
    std::time_t now = std::time(nullptr);
    std::tm tm{};
    localtime_r(&now, &tm);
    return DateTime{tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec};
}

SimClock::SimClock(const MachineConfig& config, DateTime start, bool frozen)
    : config_(config),
      startSeconds_(toSeconds(start)),
      frozen_(frozen),
      realStart_(std::chrono::steady_clock::now()) {}

DateTime SimClock::now() {
    uint64_t ms = sleptMs_;
    if (!frozen_)
        ms += static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                        std::chrono::steady_clock::now() - realStart_)
                                        .count());
    return fromSeconds(startSeconds_ + static_cast<int64_t>(ms / 1000));
}

void SimClock::sleep(uint32_t milliseconds) { sleptMs_ += milliseconds; }

std::string SimClock::generalDate(const DateTime& t) {
    // Always both parts, midnight included: the log's date-time is defined as
    // short date, a blank, long time, and the Windows binding prints it so.
    return formatPicture(config_.shortDate, t, config_.amDesignator, config_.pmDesignator) + ' ' +
           formatPicture(config_.longTime, t, config_.amDesignator, config_.pmDesignator);
}

std::string SimClock::dateText(const DateTime& t) {
    const bool midnight = t.hour == 0 && t.minute == 0 && t.second == 0;
    const bool dayZero = t.year == 1899 && t.month == 12 && t.day == 30;
    if (midnight && !dayZero) return formatPicture(config_.shortDate, t, config_.amDesignator, config_.pmDesignator);
    if (dayZero) return formatPicture(config_.longTime, t, config_.amDesignator, config_.pmDesignator);
    return generalDate(t);
}

}  // namespace platform::sim

// The simulated clock: local time from a start point, moved by real time
// (unless frozen) and by every sleep, which returns at once.
#pragma once

#include <chrono>
#include <string>

#include "platform/clock.h"

namespace platform::sim {

struct MachineConfig;

// A date-time in a Windows date or time picture ("M/d/yyyy", "h:mm:ss tt",
// "dd.MM.yyyy", "HH:mm:ss"): d dd ddd dddd, M MM MMM MMMM, y yy yyyy, h hh,
// H HH, m mm, s ss, t tt, g gg, 'quoted' literals; day and month names in English.
std::string formatPicture(std::string_view picture, const DateTime& t, std::string_view am,
                          std::string_view pm);

class SimClock : public Clock {
public:
    SimClock(const MachineConfig& config, DateTime start, bool frozen);

    DateTime now() override;
    void sleep(uint32_t milliseconds) override;
    // Short date, a blank, long time (midnight included).
    std::string generalDate(const DateTime& t) override;
    std::string dateText(const DateTime& t) override;

private:
    const MachineConfig& config_;
    int64_t startSeconds_;
    bool frozen_;
    std::chrono::steady_clock::time_point realStart_;
    uint64_t sleptMs_ = 0;
};

// The host's local time, whole seconds.
DateTime hostLocalTime();

}  // namespace platform::sim

// The local clock, sleeps, and the locale's general date format.
#pragma once

#include <cstdint>
#include <string>

#include "platform/datetime.h"

namespace platform {

class Clock {
public:
    virtual ~Clock() = default;
    virtual DateTime now() = 0;  // local time, whole seconds
    virtual void sleep(uint32_t milliseconds) = 0;
    // The locale's general date: short date, a blank, long time
    // ("11/15/2026 4:10:36 PM" in English (United States)).
    virtual std::string generalDate(const DateTime& t) = 0;
    // The text a date value converts to: the short date alone at midnight,
    // the long time alone on day zero (12/30/1899), else the general date
    // ("10/14/2026", "4:10:36 PM", "10/14/2026 4:10:36 PM").
    virtual std::string dateText(const DateTime& t) = 0;
};

}  // namespace platform

// The schedule as the schedule files deliver it, and the window decisions.
#pragma once

#include <cstdint>
#include <string>

#include "platform/datetime.h"

namespace kpm {

struct ScheduleSettings {
    std::string ScheduleType, MonthDateValue, MonthWeekValue, ScheduleDayList;
    std::string ScheduleFromTime, ScheduleToTime;
    std::string PatchDownloadEnabled;  // "1", "0" or ""
    std::string MsScheduleDecision, TpScheduleDecision;  // "Y" / "N"
    std::string AlwaysDownloadViaGateway;                // "1" / "0"
    std::string SelectedVendors;
    std::string UpclsScope;
    bool InDownloadWindow = false;
    platform::DateTime WindowStart;  // start of the matched window; no reader
    int32_t WindowDistanceMs = 0;    // distance from it at the decision; no reader
};

inline ScheduleSettings scheduleSettings;

void subReadXMLForSchedule();
void subReadTPMXMLForSchedule();
bool fncCheckTime();
bool fncCheckTimeTP();

std::string GetScheduleDecision(std::string& fromTime, std::string& toTime, std::string& dayList,
                                std::string& scheduleType, std::string& monthDateValue,
                                std::string& monthWeekValue);
int16_t GetCountInMonth(const platform::DateTime& date, int weekday);
int CountWeekdayInMonth(const std::string& monthName, int year, int weekday);
int32_t GetMillisecondsBetween(const platform::DateTime& a, const platform::DateTime& b);

}  // namespace kpm

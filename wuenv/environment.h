// What the environment probes found out about the machine.
#pragma once

#include <string>

#include "platform/datetime.h"

namespace kpm {

struct EnvironmentInfo {
    std::string OSProductName;    // fOSName: "ProductName" or a name from the version table
    std::string ServicePack;      // fOSName: last word of "CSDVersion", or the major number
    std::string OSName;           // WMI "Caption", else OSProductName
    std::string ServicePackName;  // WMI "Csdversion", else "Service Pack " + service pack
    platform::DateTime ScanStartTime;  // local time to the second; set again by each scan attempt
    std::string AgentVersion;       // trimmed "ProductVersionString"; nothing reads it
    double DriveTotalMB = 0, DriveFreeMB = 0;
    std::string DriveTotalMBText, DriveFreeMBText;
};

inline EnvironmentInfo environment;

}  // namespace kpm

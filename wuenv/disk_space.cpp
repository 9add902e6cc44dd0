// Size and free space of the agent's drive, in megabytes with one decimal.
#include <cmath>
#include <exception>

#include "config/agent_settings.h"
#include "config/ini.h"
#include "log/w3c_log.h"
#include "platform/errors.h"
#include "platform/host.h"
#include "platform/variant.h"
#include "wuenv/environment.h"
#include "wuenv/probes.h"

namespace kpm {

namespace {

// Bytes to megabytes, rounded to one decimal with halves to the even digit.
// bytes * 10 / 2^20 is exact in a double for any real disk, so a half stays a half.
double megabytes(uint64_t bytes) {
    const double tenths = static_cast<double>(bytes) * 10.0 / 1048576.0;
    return std::nearbyint(tenths) / 10.0;  // the default rounding mode is to nearest, ties to even
}

}  // namespace

void fncGetDiskSpace(const std::string& driveRoot) {
    uint64_t freeToCaller = 0, total = 0, totalFree = 0;
    // A drive whose space cannot be read is a failure of the call: the values
    // stay as they were, and the callers go on as their rules say.
    if (!platform::files().diskFreeSpace(driveRoot, freeToCaller, total, totalFree))
        throw platform::makeError(platform::err::PathNotFound);
    environment.DriveTotalMB = megabytes(total);
    environment.DriveFreeMB = megabytes(totalFree);
    environment.DriveTotalMBText = platform::formatNumber(environment.DriveTotalMB);
    environment.DriveFreeMBText = platform::formatNumber(environment.DriveFreeMB);
}

bool fncLowDiskSpace() {
    try {
        fncGetDiskSpace(UCase(agentSettings.InstallPath.substr(0, 3)));
        return !(environment.DriveFreeMB > 1536);
    } catch (const std::exception&) {
        return false;
    }
}

}  // namespace kpm

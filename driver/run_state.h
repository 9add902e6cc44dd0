// The pass's shared flags and the error trail that the status posts report.
#pragma once

#include <string>

namespace kpm {

struct RunState {
    bool BlackListFailed = false;  // neither black-list source answered: no Microsoft scan
    bool MSPassRan = false;        // the Microsoft branch got past its black-list step
    bool TPPassRan = false;        // the third-party scan was started
    bool ErrorSeen = false;        // set by error handlers; nothing reads it
    std::string ErrorTrail;        // " proc : lastError : number" per trapped error
    // "DwldURL.txt": open for appending for the whole pass (one line per
    // fetched URL). Empty while no pass has opened it.
    std::string DownloadURLPath;
    bool DownloadURLOpen = false;
    std::string DownloadStatusIniPath;  // "...\Components\DownloadStatus.ini"
    std::string StatusText1, StatusText2;  // the two status strings reset at start-up
    std::string DownloadMode = "Online";   // overwritten by the download channels; no reader
};

inline RunState runState;

// Appends one line to "DwldURL.txt" while it is open (the download procedures' record).
void subWriteDownloadURL(const std::string& line);

}  // namespace kpm

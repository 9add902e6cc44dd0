// What the downloads leave for later steps: the channels' results (read by
// the content download and the status posts) and the download counters.
#pragma once

#include <cstdint>
#include <string>

namespace kpm {

struct DownloadCounters {
    std::string LastDownloadedFile;   // full path the last successful channel call wrote
    std::string LastDownloadChannel;  // "Online" (Microsoft) or "Offline" (gateway)
    bool GatewayTried = false;        // set at the start of every gateway download
    std::string DownloadURLStatus;    // the last status DownloadURL_File returned
    long AlreadyDownloadedCount = 0;
    double AlreadyDownloadedBytes = 0;
    long CurrentDownloadedCount = 0;
    double CurrentDownloadedBytes = 0;
};

inline DownloadCounters downloadCounters;

}  // namespace kpm

// What the Microsoft pipeline keeps for the whole pass: the Windows Update
// objects of the scan, the selection's black list and current update, and the
// content download's current file. Later steps read them through this record
// rather than through arguments.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <unordered_set>
#include <vector>

#include "platform/automation.h"

namespace kpm {

struct UpdatePipelineState {
    // The scan.
    platform::Object UpdateSession;         // "Microsoft.Update.Session"
    platform::Object UpdateCollection;      // "Microsoft.Update.UpdateColl": the one update being downloaded
    platform::Object UpdateServiceManager;  // "Microsoft.Update.ServiceManager"
    platform::Object UpdateService;         // "Microsoft Update" (online) or the scan-package service (offline)
    platform::Object UpdateSearcher;
    platform::Object SearchResult;
    std::string ScanningMethod;  // "ONLINE" / "OFFLINE"
    bool InternetAvailable = false;
    bool UpdateServiceDown = false;  // service not running, or both scans failed

    // The selection.
    std::vector<std::string> BlackListEntries;  // "OS,service pack,KB" lines of PatchBlackList.txt
    // The same entries upper-cased, by length: an entry occurs in a match key
    // when one of the key's pieces of that length is among them, so a test
    // costs the key's length, not the list's.
    std::map<size_t, std::unordered_set<std::string>> BlackListByLength;
    int32_t BlackListDate = 0;                  // yyyymmdd
    int16_t CurrentUpdateIndex = 0;             // index in SearchResult.Updates
    int32_t UpdateReleaseDate = 0;              // yyyymmdd of the current update
    bool MissingPatchFound = false;
    std::string CurrentPatchID;  // UpdateID "." RevisionNumber of the last selected update

    // The content download.
    platform::Object CurrentUpdate;
    int16_t CurrentContentIndex = 0;
    int16_t CurrentBundleIndex = 0;
    std::string ContentFileName;
    std::string ContentStatusText;  // what goes to the error trail when no channel brought the file
};

inline UpdatePipelineState updatePipeline;

}  // namespace kpm

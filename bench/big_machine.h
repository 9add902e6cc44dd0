// A big managed computer for whole-pass benchmarks: thousands of missing
// updates, a long black list, a full patch folder. Most content files are
// already there from earlier days; a few come from the gateway; black-listed
// updates and stale files leave files for the clean-up to delete.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "download_machine.h"

namespace kpmbench {

struct Shape {
    int updates = 3000;      // missing updates in the catalogue
    int upcls = 10;          // upcls elements of MSUpd.xml, one classification each
    int products = 100;      // products in each element's list
    int blackList = 50000;   // entries of PatchBlackList.txt
    int files = 10000;       // files in the components folder before the pass
    int lines = 10000;       // content files the pass holds: lines of DwldURL.txt
    int downloads = 20;      // of those, fetched from the gateway
    std::string label = "base";
};

// The shape with one dimension doubled ("updates", "upcls", "products",
// "blacklist", "files", "lines"), or all of them ("all").
Shape doubled(const Shape& s, const std::string& dimension);

// Writes the shape into a machine whose sites are running: the catalogue,
// MSUpd.xml, the gateway's black list and content files, the patch folder.
void buildBigMachine(kpmtest::DownloadMachine& m, const Shape& s);

// Copies a machine folder (its sites' folders left out).
void copyMachine(const std::filesystem::path& from, const std::filesystem::path& to);

struct PassRun {
    double seconds = 0;   // wall time of the child process
    double cpuSeconds = 0;  // its user and system time
    long peakKB = 0;      // its peak resident set
    int exitCode = -1;
};
// One pass of kpmdwld-sim on a machine folder, as a child process.
PassRun runSimPass(const std::string& simExe, const std::filesystem::path& machine, const std::string& now);

// The activity log's entry lines (header left out), each with its CR LF.
std::vector<std::string> logEntryLines(const std::filesystem::path& machine);

// The floor: the same lines appended one open-append-close each through the
// simulated machine's file system, to a fresh log at the same place; seconds.
double simAppendFloor(const std::filesystem::path& machine, const std::vector<std::string>& lines);

// The second floor: every write the pass made (its log entries, its
// "DwldURL.txt" lines, its "DownloadStatus.ini" keys), each made again the way
// the pass makes it, through the same simulated file system; seconds.
double simWritesFloor(const std::filesystem::path& machine, const std::vector<std::string>& logLines);

}  // namespace kpmbench

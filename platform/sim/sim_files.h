// The simulated computer's files: Windows paths mapped onto
// <machine>/drives/<LETTER>/..., names matched case-insensitively.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "platform/files.h"
#include "platform/sim/sim_config.h"

namespace platform::sim {

struct MachineState;

// A Windows path taken apart. "\X" and "X" are on the current drive, C:;
// "." and ".." are applied, trailing dots and blanks of a name dropped (as
// Windows does).
struct WinPath {
    char drive = 'C';
    std::vector<std::string> parts;
    bool trailingSeparator = false;
};

// False for an empty or UNC path, or a name with characters Windows refuses
// (wildcards are allowed in the last name when allowWildcards).
bool parseWinPath(std::string_view text, WinPath& out, bool allowWildcards = false);

// True for a name that is its own 8.3 short name.
bool isShortName(std::string_view name);

// The short name Windows gives `name` among `siblings` (all names in its folder).
std::string shortAlias(const std::string& name, const std::vector<std::string>& siblings);

// Replaces a host file with `bytes` as Windows replaces a file it writes in
// one piece: the bytes go to a file in `staging` (beside `file` when empty),
// which is then renamed over it, so a process killed half-way leaves the old
// content or the new, never a part. False when it could not be written.
bool replaceWhole(const std::filesystem::path& file, std::string_view bytes,
                  const std::filesystem::path& staging = {});

// Removes from `staging` what processes that no longer run left half-done
// (a pass killed mid-transfer): names carry the writer's process id.
void sweepStaged(const std::filesystem::path& staging);

class SimFiles : public FileSystem {
public:
    explicit SimFiles(MachineState& state);

    // Where a Windows path lives; throws MachineError for an unknown drive or
    // a path that is no usable Windows path.
    std::filesystem::path hostPath(std::string_view windowsPath) const;
    // The folder of a drive; empty when the machine has no such drive.
    std::filesystem::path driveFolder(char letter) const;
    bool isReadOnly(const std::filesystem::path& host) const;

    bool fileExists(std::string_view path) override;
    bool folderExists(std::string_view path) override;
    bool findFirst(std::string_view path) override;
    bool makeSureDirectoryPathExists(std::string_view path) override;
    void createFolder(std::string_view path) override;
    uint64_t fileSize(std::string_view path) override;
    void clearReadOnly(std::string_view path) override;
    void setReadOnly(std::string_view path, bool readOnly) override;
    void deleteFile(std::string_view path) override;
    void deleteFolder(std::string_view path) override;
    void moveFile(std::string_view from, std::string_view to) override;
    std::string sha256(std::string_view path) override;
    std::string readAll(std::string_view path) override;
    void writeAll(std::string_view path, std::string_view bytes) override;
    void append(std::string_view path, std::string_view bytes) override;
    std::vector<std::string> listFiles(std::string_view folder) override;
    uint32_t getShortPathName(std::string_view longPath, std::string& buffer,
                              uint32_t size) override;
    bool diskFreeSpace(std::string_view root, uint64_t& freeToCaller, uint64_t& total,
                       uint64_t& totalFree) override;

    // Moves a finished host file (a download staged outside the drives) to
    // a Windows path in one step, replacing an older file, with the drive's
    // space charged: ComError 76 when the folder is missing, 70 when the
    // file there is read-only, 61 when the drive is full. On failure the
    // host file stays where it was.
    void importFile(const std::filesystem::path& hostFile, std::string_view path);

private:
    struct Located {
        std::filesystem::path host;
        WinPath win;
    };
    // The host path, or nothing with the last error set (3 unknown drive, 123 bad name).
    std::optional<Located> locate(std::string_view path, bool allowWildcards = false);
    std::filesystem::path resolve(const WinPath& p) const;
    WinPath inFolderNames(WinPath p) const;
    // A file about to be written: its folder exists, it is no folder and not
    // read-only (else throws 76, 75, 70); oldSize is its current size.
    Located locateForWrite(std::string_view path, uint64_t& oldSize);
    // Throws ComError `number`, setting the matching last error.
    [[noreturn]] void raise(int32_t number, uint32_t lastError);
    bool failWin32(uint32_t code);
    // Takes bytes from (or gives them back to) a drive's free space; throws 61.
    void charge(char drive, int64_t delta);
    DriveSpace& space(char drive);
    void writeFile(std::string_view path, std::string_view bytes, bool append);

    // The entry a name finds in a host folder (see findEntry), remembered:
    // a pass names the same folders and files thousands of times.
    std::optional<std::string> entry(const std::filesystem::path& dir, const std::string& name) const;
    std::string alias(const std::filesystem::path& dir, const std::string& entryName) const;

    // A change this class makes to one entry of a host folder: call
    // listingCurrent before it and changed after. What was found in the
    // folder is dropped when an entry goes; a listing that was current stays
    // current, with the entry added or removed, so that a big folder is not
    // read again after each file a pass writes or deletes in it.
    enum class EntryChange { Added, Removed, Rewritten };
    bool listingCurrent(const std::filesystem::path& dir) const;
    void changed(const std::filesystem::path& dir, const std::string& name, EntryChange change, bool wasCurrent);
    void changedAll() {
        found_.clear();
        listings_.clear();
        drives_.clear();
        located_.clear();
    }
    // A folder's names, kept while its modification time stays: a name that
    // is not there exactly is looked for without listing a big folder again.
    struct Listing {
        std::filesystem::file_time_type time;
        std::vector<std::string> names;                          // in no particular order
        std::unordered_map<std::string, size_t> position;        // of each name in names
        std::unordered_multimap<std::string, std::string> byUpper;  // each name by its upper-cased form
        void add(const std::string& name);
        void remove(const std::string& name);
    };
    const Listing& listing(const std::filesystem::path& dir) const;

    MachineState& state_;
    std::map<char, DriveSpace> space_;
    mutable std::unordered_map<std::string, std::unordered_map<std::string, std::string>> found_;
    mutable std::map<char, std::filesystem::path> drives_;
    mutable std::unordered_map<std::string, Listing> listings_;
    // Whole paths as the program names them, resolved: a pass names the same
    // few files (its log, its lists) thousands of times. Dropped whenever a
    // folder gains or loses an entry.
    mutable std::unordered_map<std::string, Located> located_;
};

}  // namespace platform::sim

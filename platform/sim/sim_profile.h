// Private-profile files on the simulated machine, with the Win32 calls' rules.
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/profile.h"
#include "platform/sim/sim_ini.h"

namespace platform::sim {

struct MachineState;
class SimFiles;

class SimProfile : public Profile {
public:
    SimProfile(MachineState& state, SimFiles& files);

    uint32_t getString(std::string_view section, std::string_view key,
                       std::string_view defaultValue, std::string& buffer, uint32_t size,
                       std::string_view file) override;
    bool writeString(std::string_view section, std::string_view key, std::string_view value,
                     std::string_view file) override;

    // The profile text after writing key=value (what writeString stores):
    // the first matching key's line replaced (the key keeps its case), else
    // the key appended to the first matching section, else the section
    // appended at the end. New lines end in CRLF.
    static std::string withKey(std::string_view text, std::string_view section,
                               std::string_view key, std::string_view value);
    // The value (quotes removed) of the first matching key of the first
    // matching section; false when there is none.
    static bool lookUp(std::string_view text, std::string_view section, std::string_view key,
                       std::string& value);

private:
    // The file last written, as that write left it, with the keys of one
    // section: a file that gets thousands of keys one by one (the download
    // method of every patch file) is then neither re-read nor rewritten for
    // each, yet ends up byte for byte as with the plain read-modify-write.
    struct Recent {
        std::filesystem::path host;
        std::filesystem::file_time_type time;
        std::uintmax_t size = 0;
        std::string text;
        std::vector<IniLine> lines;
        std::string section;  // the section indexed, as asked
        size_t sectionLine = 0, lastFilled = 0;  // lines.size(): not in the file
        std::unordered_map<std::string, size_t> keys;  // upper-cased key -> its first line in the section
    };
    // Writes through `recent_` when the file is as it was left and the write
    // changes nothing or only adds at the end; false: take the plain way.
    bool writeRecent(const std::string& name, std::string_view section, std::string_view key,
                     std::string_view value, bool& ok);
    void remember(const std::string& name, std::string text);
    void indexSection(std::string_view section);

    // A name without a folder lives in the Windows folder, as on Windows.
    std::string fullName(std::string_view file) const;

    MachineState& state_;
    SimFiles& files_;
    std::unique_ptr<Recent> recent_;
};

}  // namespace platform::sim

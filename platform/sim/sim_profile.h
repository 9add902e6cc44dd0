// Private-profile files on the simulated machine, with the Win32 calls' rules.
#pragma once

#include "platform/profile.h"

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
    // A name without a folder lives in the Windows folder, as on Windows.
    std::string fullName(std::string_view file) const;

    MachineState& state_;
    SimFiles& files_;
};

}  // namespace platform::sim

// Private-profile (INI) files, with the semantics of GetPrivateProfileStringA
// and WritePrivateProfileStringA: sections and keys case-insensitive, blanks
// around values trimmed, one pair of enclosing quotes removed, the file and the
// section created on write. Files are named by Windows paths.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace platform {

class Profile {
public:
    virtual ~Profile() = default;
    // Copies the value (or the default) into buffer[0 .. size), truncated to
    // size - 1 characters and NUL-terminated, and returns the number of
    // characters copied. buffer must hold at least size characters.
    virtual uint32_t getString(std::string_view section, std::string_view key,
                               std::string_view defaultValue, std::string& buffer, uint32_t size,
                               std::string_view file) = 0;
    // Writes key=value in section; false when the file cannot be written.
    virtual bool writeString(std::string_view section, std::string_view key,
                             std::string_view value, std::string_view file) = 0;
};

}  // namespace platform

#include <windows.h>

#include "platform/profile.h"
#include "platform/win32/bindings.h"

namespace platform::win32 {

namespace {

class Win32Profile final : public Profile {
public:
    uint32_t getString(std::string_view section, std::string_view key, std::string_view defaultValue,
                       std::string& buffer, uint32_t size, std::string_view file) override {
        if (size == 0) return 0;
        if (buffer.size() < size) buffer.resize(size);
        std::string s(section), k(key), d(defaultValue), f(file);
        return GetPrivateProfileStringA(s.c_str(), k.c_str(), d.c_str(), buffer.data(), size, f.c_str());
    }

    bool writeString(std::string_view section, std::string_view key, std::string_view value,
                     std::string_view file) override {
        std::string s(section), k(key), v(value), f(file);
        return WritePrivateProfileStringA(s.c_str(), k.c_str(), v.c_str(), f.c_str()) != FALSE;
    }
};

}  // namespace

std::unique_ptr<Profile> newProfile() { return std::make_unique<Win32Profile>(); }

}  // namespace platform::win32

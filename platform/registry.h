// The registry, with the Win32 calls' own result codes (0 = ERROR_SUCCESS).
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace platform {

enum class Hive { ClassesRoot, CurrentUser, LocalMachine, Users };

// Which registry view a key is opened in. The program is a 32-bit program:
// a plain open sees the 32-bit view (HKLM\SOFTWARE\X is
// HKLM\SOFTWARE\Wow6432Node\X on 64-bit Windows, HKCR\CLSID\X is
// HKCR\Wow6432Node\CLSID\X); View32 is
// KEY_WOW64_32KEY, View64 KEY_WOW64_64KEY. On 32-bit Windows all three are
// the one registry.
enum class RegView { Default, View32, View64 };

namespace regtype {
constexpr uint32_t None = 0;
constexpr uint32_t String = 1;        // REG_SZ
constexpr uint32_t ExpandString = 2;  // REG_EXPAND_SZ
constexpr uint32_t Binary = 3;        // REG_BINARY
constexpr uint32_t Dword = 4;         // REG_DWORD
constexpr uint32_t MultiString = 7;   // REG_MULTI_SZ
constexpr uint32_t Qword = 11;        // REG_QWORD
}  // namespace regtype

namespace regerr {
constexpr long Success = 0;
constexpr long FileNotFound = 2;
constexpr long AccessDenied = 5;
constexpr long InvalidHandle = 6;
constexpr long SharingViolation = 32;
constexpr long InvalidParameter = 87;
constexpr long BadDatabase = 1009;        // ERROR_BADDB: a hive file that is no hive
constexpr long PrivilegeNotHeld = 1314;
constexpr long MoreData = 234;
constexpr long NoMoreItems = 259;
}  // namespace regerr

// Access masks the program passes (KEY_ALL_ACCESS and friends).
namespace regaccess {
// What a plain RegOpenKeyA asks for.
constexpr uint32_t MaximumAllowed = 0x02000000;
constexpr uint32_t QueryValue = 0x0001;
constexpr uint32_t SetValue = 0x0002;
constexpr uint32_t Read = 0x20019;
constexpr uint32_t AllAccess = 0xF003F;
}  // namespace regaccess

struct RegValue {
    uint32_t type = regtype::None;
    std::vector<uint8_t> data;  // raw bytes as RegQueryValueExA returns them

    static RegValue string(std::string_view s);  // REG_SZ with its terminating NUL
    static RegValue dword(uint32_t v);
    // The number a DWORD's bytes hold: the first four, least significant
    // first; missing bytes count as zero, bytes past the fourth are ignored.
    uint32_t dwordValue() const;
    // REG_SZ or REG_EXPAND_SZ.
    bool isText() const;
    // A string value's text, without its terminating NULs.
    std::string text() const;
};

// An open key; closed when destroyed.
class RegKey {
public:
    virtual ~RegKey() = default;
    // RegQueryValueExA: type and bytes of a value; "" is the default value.
    virtual long queryValue(std::string_view name, RegValue& out) = 0;
    // RegSetValueExA.
    virtual long setValue(std::string_view name, const RegValue& value) = 0;
    // RegCreateKeyA(this key, name): creates or opens a subkey.
    virtual long createSubKey(std::string_view name, std::unique_ptr<RegKey>& out) = 0;
    // RegEnumKeyExA: the name of the subkey at `index` (0, 1, ...);
    // regerr::NoMoreItems past the last one.
    virtual long enumSubKey(uint32_t index, std::string& name) = 0;
};

class Registry {
public:
    virtual ~Registry() = default;
    // RegOpenKeyExA (RegOpenKeyA is access = AllAccess, view = Default).
    virtual long openKey(Hive hive, std::string_view path, uint32_t access, RegView view,
                         std::unique_ptr<RegKey>& out) = 0;
    // RegCreateKeyA: creates every missing key on the path, or opens it.
    virtual long createKey(Hive hive, std::string_view path, RegView view,
                           std::unique_ptr<RegKey>& out) = 0;
    // RegLoadKeyA(HKEY_USERS, name, file): the hive file of a user who is
    // not logged on (their NTUSER.DAT) mounted as HKEY_USERS\name, with the
    // backup and restore privileges enabled first. The caller only reads it.
    virtual long loadUserHive(std::string_view name, std::string_view file) = 0;
    // RegUnLoadKeyA(HKEY_USERS, name): every key of it must be closed.
    virtual long unloadUserHive(std::string_view name) = 0;
};

}  // namespace platform

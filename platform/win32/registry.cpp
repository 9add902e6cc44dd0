#include <windows.h>

#include "platform/registry.h"
#include "platform/win32/ansi.h"
#include "platform/win32/bindings.h"
#include "platform/win32/handles.h"

namespace platform::win32 {

namespace {

HKEY rootOf(Hive h) {
    switch (h) {
    case Hive::ClassesRoot: return HKEY_CLASSES_ROOT;
    case Hive::CurrentUser: return HKEY_CURRENT_USER;
    case Hive::LocalMachine: return HKEY_LOCAL_MACHINE;
    case Hive::Users: return HKEY_USERS;
    }
    return HKEY_LOCAL_MACHINE;
}

// The program is a 32-bit program: its plain view is the 32-bit one, which a
// 64-bit build must ask for explicitly.
REGSAM viewFlag(RegView v) {
    if (v == RegView::View64) return KEY_WOW64_64KEY;
    if (v == RegView::View32) return KEY_WOW64_32KEY;
#ifdef _WIN64
    return KEY_WOW64_32KEY;
#else
    return 0;
#endif
}

bool isText(DWORD type) { return type == REG_SZ || type == REG_EXPAND_SZ || type == REG_MULTI_SZ; }

// A text value's UTF-16 bytes as the program's text, NULs kept where they are
// (a multi-string's separators, the terminating one); an odd last byte, which
// no text has, is dropped.
std::vector<uint8_t> ansiOf(const std::vector<uint8_t>& utf16) {
    std::wstring wide(utf16.size() / 2, L'\0');
    for (size_t i = 0; i < wide.size(); ++i)
        wide[i] = static_cast<wchar_t>(utf16[2 * i] | utf16[2 * i + 1] << 8);
    const std::string ansi = toAnsi(wide);
    return std::vector<uint8_t>(ansi.begin(), ansi.end());
}

class Win32RegKey final : public RegKey {
public:
    Win32RegKey(HKEY k, REGSAM view) : key_(k), view_(view) {}

    // Read through the W call and converted here: the A call's conversion
    // uses best fit, which would hand the program a look-alike ('/' for a
    // full-width solidus) where every other text it gets says '?'.
    long queryValue(std::string_view name, RegValue& out) override {
        const std::wstring n = toWide(name);
        DWORD type = 0, size = 0;
        LONG r = RegQueryValueExW(key_.get(), n.c_str(), nullptr, &type, nullptr, &size);
        std::vector<uint8_t> data;
        // The value may grow between the two calls: ask again until it fits.
        while (r == ERROR_SUCCESS || r == ERROR_MORE_DATA) {
            data.resize(size);
            DWORD got = size;
            r = RegQueryValueExW(key_.get(), n.c_str(), nullptr, &type, size ? data.data() : nullptr, &got);
            if (r == ERROR_SUCCESS) {
                data.resize(got);
                out.type = type;
                out.data = isText(type) ? ansiOf(data) : std::move(data);
                return ERROR_SUCCESS;
            }
            size = got > size ? got : size * 2 + 16;
        }
        return r;
    }

    long setValue(std::string_view name, const RegValue& value) override {
        std::string n(name);
        return RegSetValueExA(key_.get(), n.c_str(), 0, value.type,
                              value.data.empty() ? nullptr : value.data.data(),
                              static_cast<DWORD>(value.data.size()));
    }

    long createSubKey(std::string_view name, std::unique_ptr<RegKey>& out) override {
        return create(key_.get(), name, view_, out);
    }

    long enumSubKey(uint32_t index, std::string& name) override {
        // A key name has at most 255 characters; grow in case a system says otherwise.
        std::vector<wchar_t> buf(256);
        while (true) {
            DWORD size = static_cast<DWORD>(buf.size());
            LONG r = RegEnumKeyExW(key_.get(), index, buf.data(), &size, nullptr, nullptr, nullptr, nullptr);
            if (r == ERROR_SUCCESS) name = toAnsi(std::wstring_view(buf.data(), size));
            if (r != ERROR_MORE_DATA || buf.size() >= 4096) return r;
            buf.resize(buf.size() * 2);
        }
    }

    // RegCreateKeyA: creates every missing key of `path` below `parent`.
    static long create(HKEY parent, std::string_view path, REGSAM view, std::unique_ptr<RegKey>& out) {
        out.reset();
        std::string p(path);
        HKEY k = nullptr;
        LONG r = RegCreateKeyExA(parent, p.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE,
                                 MAXIMUM_ALLOWED | view, nullptr, &k, nullptr);
        if (r == ERROR_SUCCESS) out = std::make_unique<Win32RegKey>(k, view);
        return r;
    }

private:
    UniqueHKey key_;
    REGSAM view_;
};

// RegLoadKey and RegUnLoadKey need SeRestorePrivilege and SeBackupPrivilege
// enabled in the caller's token (SYSTEM holds both, disabled). Enabled once;
// ERROR_PRIVILEGE_NOT_HELD when the token does not hold them.
long enableHivePrivileges() {
    static long result = -1;
    if (result != -1) return result;
    HANDLE token = nullptr;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY, &token))
        return result = static_cast<long>(GetLastError());
    result = ERROR_SUCCESS;
    for (const char* name : {"SeRestorePrivilege", "SeBackupPrivilege"}) {
        TOKEN_PRIVILEGES tp{};
        tp.PrivilegeCount = 1;
        tp.Privileges[0].Attributes = SE_PRIVILEGE_ENABLED;
        if (!LookupPrivilegeValueA(nullptr, name, &tp.Privileges[0].Luid) ||
            !AdjustTokenPrivileges(token, FALSE, &tp, sizeof tp, nullptr, nullptr)) {
            result = static_cast<long>(GetLastError());
            break;
        }
        // AdjustTokenPrivileges succeeds without enabling what the token lacks.
        if (GetLastError() == ERROR_NOT_ALL_ASSIGNED) {
            result = ERROR_PRIVILEGE_NOT_HELD;
            break;
        }
    }
    CloseHandle(token);
    return result;
}

class Win32Registry final : public Registry {
public:
    long openKey(Hive hive, std::string_view path, uint32_t access, RegView view,
                 std::unique_ptr<RegKey>& out) override {
        out.reset();
        std::string p(path);
        HKEY k = nullptr;
        LONG r = RegOpenKeyExA(rootOf(hive), p.c_str(), 0, access | viewFlag(view), &k);
        if (r == ERROR_SUCCESS) out = std::make_unique<Win32RegKey>(k, viewFlag(view));
        return r;
    }

    long createKey(Hive hive, std::string_view path, RegView view, std::unique_ptr<RegKey>& out) override {
        return Win32RegKey::create(rootOf(hive), path, viewFlag(view), out);
    }

    long loadUserHive(std::string_view name, std::string_view file) override {
        if (long r = enableHivePrivileges(); r != ERROR_SUCCESS) return r;
        const std::string n(name), f(file);
        return RegLoadKeyA(HKEY_USERS, n.c_str(), f.c_str());
    }

    long unloadUserHive(std::string_view name) override {
        if (long r = enableHivePrivileges(); r != ERROR_SUCCESS) return r;
        const std::string n(name);
        return RegUnLoadKeyA(HKEY_USERS, n.c_str());
    }
};

}  // namespace

std::unique_ptr<Registry> newRegistry() { return std::make_unique<Win32Registry>(); }

}  // namespace platform::win32

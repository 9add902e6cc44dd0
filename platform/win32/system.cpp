#include <windows.h>

#include <vector>

#include "platform/errors.h"
#include "platform/system.h"
#include "platform/win32/ansi.h"
#include "platform/win32/bindings.h"
#include "platform/win32/handles.h"

namespace platform::win32 {

namespace {

class Win32System final : public System {
public:
    bool getComputerName(std::string& buffer, uint32_t& size) override {
        if (buffer.size() < size) buffer.resize(size);
        DWORD n = size;
        BOOL ok = GetComputerNameA(size ? buffer.data() : nullptr, &n);
        size = n;
        return ok != FALSE;
    }

    std::string exePath() override {
        std::string buf(MAX_PATH, '\0');
        for (;;) {
            DWORD n = GetModuleFileNameA(nullptr, buf.data(), static_cast<DWORD>(buf.size()));
            if (n < buf.size()) return buf.substr(0, n);
            buf.resize(buf.size() * 2);  // truncated: the path is longer than MAX_PATH
        }
    }

    std::string systemDirectory() override {
        std::string buf(MAX_PATH, '\0');
        UINT n = GetSystemDirectoryA(buf.data(), static_cast<UINT>(buf.size()));
        if (n >= buf.size()) {
            buf.resize(n);
            n = GetSystemDirectoryA(buf.data(), static_cast<UINT>(buf.size()));
        }
        buf.resize(n < buf.size() ? n : 0);
        return buf;
    }

    bool getVersion(OsVersion& out) override {
        OSVERSIONINFOEXA vi{};
        vi.dwOSVersionInfoSize = sizeof vi;
        // Without a compatibility manifest (the program has none) Windows 8.1
        // and later report 6.2, which is what the program has always seen.
#ifdef _MSC_VER
#pragma warning(suppress : 4996)
#endif
        BOOL ok = GetVersionExA(reinterpret_cast<OSVERSIONINFOA*>(&vi));
        if (!ok) return false;
        out.platformId = vi.dwPlatformId;
        out.major = vi.dwMajorVersion;
        out.minor = vi.dwMinorVersion;
        out.build = vi.dwBuildNumber;
        out.servicePackMajor = vi.wServicePackMajor;
        out.productType = vi.wProductType;
        out.csdVersion = vi.szCSDVersion;
        return true;
    }

    bool is64BitWindows() override {
#ifdef _WIN64
        return true;
#else
        // Looked up at run time: IsWow64Process is missing on the oldest systems.
        using IsWow64Fn = BOOL(WINAPI*)(HANDLE, PBOOL);
        HMODULE kernel = GetModuleHandleA("kernel32.dll");
        auto isWow64 = kernel ? reinterpret_cast<IsWow64Fn>(
                                    reinterpret_cast<void*>(GetProcAddress(kernel, "IsWow64Process")))
                              : nullptr;
        BOOL wow64 = FALSE;
        return isWow64 && isWow64(GetCurrentProcess(), &wow64) && wow64;
#endif
    }

    uint32_t lastError() override { return GetLastError(); }
    void setLastError(uint32_t code) override { SetLastError(code); }

    bool acquireSingleInstance(std::string_view name) override {
        std::string n(name);
        UniqueHandle m(CreateMutexA(nullptr, FALSE, n.c_str()));
        DWORD e = GetLastError();
        if (!m) return false;  // e.g. held by another user: access denied
        if (e == ERROR_ALREADY_EXISTS) {
            m.reset();
            SetLastError(e);
            return false;
        }
        mutexes_.push_back(std::move(m));
        return true;
    }

    bool startHidden(std::string_view commandLine) override {
        std::string line(commandLine);  // CreateProcessA may write into it
        STARTUPINFOA si{};
        si.cb = sizeof si;
        si.dwFlags = STARTF_USESHOWWINDOW;
        si.wShowWindow = SW_HIDE;
        PROCESS_INFORMATION pi{};
        if (!CreateProcessA(nullptr, line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &si, &pi))
            return false;
        UniqueHandle process(pi.hProcess), thread(pi.hThread);  // not waited for
        return true;
    }

    uint32_t codePage() override { return GetACP(); }

    std::u16string toUtf16(std::string_view ansi) override {
        const std::wstring w = toWide(ansi);
        return std::u16string(w.begin(), w.end());
    }

    std::string toAnsi(std::u16string_view text) override {
        return platform::win32::toAnsi(std::wstring(text.begin(), text.end()));
    }

    std::u16string upcase(std::u16string_view text) override {
        if (text.empty()) return {};
        // The invariant locale: a computer set to Turkish still upper-cases
        // "i" to "I", as its file names do.
        const std::wstring in(text.begin(), text.end());
        std::wstring out(in.size(), L'\0');
        const int n = LCMapStringEx(LOCALE_NAME_INVARIANT, LCMAP_UPPERCASE, in.data(), static_cast<int>(in.size()),
                                    out.data(), static_cast<int>(out.size()), nullptr, nullptr, 0);
        if (n != static_cast<int>(in.size())) {
            std::u16string ascii(text);  // never seen; ASCII at least
            for (char16_t& u : ascii)
                if (u >= u'a' && u <= u'z') u = static_cast<char16_t>(u - u'a' + u'A');
            return ascii;
        }
        return std::u16string(out.begin(), out.end());
    }

    [[noreturn]] void endProcess(int exitCode) override { throw ProcessEnd{exitCode}; }

private:
    std::vector<UniqueHandle> mutexes_;  // held until the process ends
};

}  // namespace

std::unique_ptr<System> newSystem() { return std::make_unique<Win32System>(); }

}  // namespace platform::win32

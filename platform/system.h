// The process and the computer: names, the single-instance mutex, starting a
// program, the last system error, ending the process.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace platform {

struct OsVersion {
    uint32_t platformId = 2;
    uint32_t major = 6, minor = 1, build = 7601;
    uint16_t servicePackMajor = 1;
    uint8_t productType = 1;
    std::string csdVersion;
};

class System {
public:
    virtual ~System() = default;
    // GetComputerNameA into buffer[0 .. size); size is updated to the name's length.
    virtual bool getComputerName(std::string& buffer, uint32_t& size) = 0;
    // Full Windows path of the running executable ("C:\...\KPMDwld.exe").
    virtual std::string exePath() = 0;
    // GetSystemDirectoryA ("C:\WINDOWS\system32").
    virtual std::string systemDirectory() = 0;
    virtual bool getVersion(OsVersion& out) = 0;
    // True on 64-bit Windows (IsWow64Process for this 32-bit program).
    virtual bool is64BitWindows() = 0;
    // The thread's last-error value of the most recent system call.
    virtual uint32_t lastError() = 0;
    virtual void setLastError(uint32_t code) = 0;
    // Creates the named system-wide mutex for the process's lifetime; false
    // when it already exists (another instance holds it).
    virtual bool acquireSingleInstance(std::string_view name) = 0;
    // Starts a command line hidden, without waiting; false when it did not start.
    virtual bool startHidden(std::string_view commandLine) = 0;
    // The computer's ANSI code page, the one the program's text is in (1252).
    virtual uint32_t codePage() = 0;
    // The program's text as UTF-16 (MultiByteToWideChar). A byte the code page
    // leaves undefined reads as the character of the same number.
    virtual std::u16string toUtf16(std::string_view ansi) = 0;
    // UTF-16 as the program's text. A character the code page lacks becomes
    // '?', never a look-alike: best fit would turn a full-width solidus into '/'.
    virtual std::string toAnsi(std::u16string_view text) = 0;
    // Upper case, one UTF-16 unit for one, without a language's rules (no
    // Turkish dotless i): how Windows compares names, case not counting.
    virtual std::u16string upcase(std::u16string_view text) = 0;
    // Ends the pass: never returns. Throws ProcessEnd, which the executable's
    // entry turns into the process's exit code.
    [[noreturn]] virtual void endProcess(int exitCode) = 0;
};

}  // namespace platform

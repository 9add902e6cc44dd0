// Builds simulated machine folders for tests and runs passes or single
// procedures on them.
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "platform/datetime.h"
#include "platform/sim/sim_machine.h"

namespace kpmtest {

// The demo agent every test starts from: a 64-bit machine with the agent
// installed at C:\Program Files\VORN\VORNMobile\ and the program in its
// BaseComponents\PatchManagement folder.
inline constexpr const char* kInstallPath = "C:\\Program Files\\VORN\\VORNMobile\\";
inline constexpr const char* kProgramFolder =
    "C:\\Program Files\\VORN\\VORNMobile\\BaseComponents\\PatchManagement";
inline constexpr const char* kLogPath =
    "C:\\Program Files\\VORN\\VORNMobile\\BaseComponents\\PatchManagement\\ApplicationLog\\"
    "wppatchmanagementDownload_R1_patchlog.log";

platform::DateTime at(const char* iso);
// A file of the computer running the tests; empty when there is none.
std::string readHostFile(const std::filesystem::path& p);

// The web-post configuration every test agent gets: both document kinds
// posted to 127.0.0.1:18080, secondary 127.0.0.1:18081.
extern const char* const kWebPostConfig;  // "2026-11-15T16:10:00"

class TestMachine {
public:
    // A registered agent with an agent INI and its registered components, on
    // a Windows in C:\WINDOWS; `bare` gives an empty machine (machine.ini
    // only) to build up from.
    explicit TestMachine(bool bare = false);
    ~TestMachine();
    TestMachine(const TestMachine&) = delete;
    TestMachine& operator=(const TestMachine&) = delete;

    const std::filesystem::path& root() const { return root_; }

    // Replaces registry.reg / machine.ini; writes files and folders by Windows path.
    void setRegistry(const std::string& regText);
    void setMachineIni(const std::string& text);
    void writeFile(const std::string& windowsPath, const std::string& content);
    void makeFolder(const std::string& windowsPath);
    void removeFile(const std::string& windowsPath);

    // Writes Configuration\wpConfig.xml encrypted with the stand-in cipher.
    void writeWebPostConfig(const std::string& plainXml);

    // Registry lines for the agent key (values as .reg lines), followed by
    // componentRegistry().
    static std::string agentRegistry(const std::string& extraValues = "");
    // The maker's COM classes registered to their DLLs in the install folder.
    static std::string componentRegistry();
    // Those DLLs (a few bytes each: the machine only looks for the files).
    void writeComponentFiles();

    // Opens the machine with a frozen clock and installs it as the host, with
    // the process state reset; the machine stays open until close() or the
    // next open().
    platform::sim::SimMachine& open(const platform::DateTime& now);
    void close();
    // A whole pass: exit code, or -1 when Main returned without ending the process.
    int runPass(const platform::DateTime& now);

    bool exists(const std::string& windowsPath) const;
    std::string read(const std::string& windowsPath) const;
    std::string registryText() const;

    // The activity log as lines without their CR LF; entries only, split at tabs.
    std::vector<std::string> logLines() const;
    std::vector<std::vector<std::string>> logEntries() const;
    // Entries as "module|proc|type|message|v1|v2|v3" (the date-time left out).
    std::vector<std::string> logMessages() const;

    std::filesystem::path hostPath(const std::string& windowsPath) const;

private:
    std::filesystem::path root_;
    std::unique_ptr<platform::sim::SimMachine> machine_;
};

}  // namespace kpmtest

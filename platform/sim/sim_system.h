// The simulated process and computer.
#pragma once

#include <string>
#include <vector>

#include "platform/system.h"

namespace platform {
class Registry;
}

namespace platform::sim {

struct MachineState;
class SimFiles;

class SimSystem : public System {
public:
    SimSystem(MachineState& state, SimFiles& files, Registry& registry);
    ~SimSystem() override;
    SimSystem(const SimSystem&) = delete;
    SimSystem& operator=(const SimSystem&) = delete;

    bool getComputerName(std::string& buffer, uint32_t& size) override;
    std::string exePath() override;
    std::string systemDirectory() override;
    bool getVersion(OsVersion& out) override;
    bool is64BitWindows() override;
    uint32_t lastError() override;
    void setLastError(uint32_t code) override;
    // An exclusive lock on <machine>/.mutex-<name>, held until the machine
    // is closed: a second machine on the same folder cannot take it.
    bool acquireSingleInstance(std::string_view name) override;
    // Appends the command line to <machine>/started-processes.log when its
    // program is on the machine (see programExists); nothing runs, except
    // that regsvr32 registers the maker's DLLs it is given (registerComServer).
    bool startHidden(std::string_view commandLine) override;
    // The program of a command line as CreateProcess finds it: a quoted
    // name, else the shortest blank-separated prefix that names a file; ".exe"
    // added when the name has no extension. A name without a folder is looked
    // for in the executable's folder, the system folder and the Windows
    // folder, and is taken as found when it is one of the programs every
    // Windows has in its system folder.
    bool programExists(std::string_view commandLine);
    // [Locale] CodePage's tables; upper case as the C library's Unicode tables have it.
    uint32_t codePage() override;
    std::u16string toUtf16(std::string_view ansi) override;
    std::string toAnsi(std::u16string_view text) override;
    std::u16string upcase(std::u16string_view text) override;
    [[noreturn]] void endProcess(int exitCode) override;

private:
    bool fileFound(std::string name);
    void runRegsvr32(std::string_view commandLine);

    MachineState& state_;
    SimFiles& files_;
    Registry& registry_;
    std::vector<std::pair<std::string, int>> mutexes_;  // name, descriptor
};

}  // namespace platform::sim

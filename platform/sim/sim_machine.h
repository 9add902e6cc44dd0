// A simulated Windows machine whose state lives in a folder on disk:
//   registry.reg   the registry, in the .reg export format (written back on change)
//   machine.ini    everything else the pass reads from the machine
//   drives/C/...   one folder per drive letter: the computer's files
// See docs/simulated-machine.md for the format.
#pragma once

#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "platform/host.h"

namespace standins {
class StandinHost;
}

namespace platform::sim {

struct MachineConfig;
class CodePage;
class SimAutomation;
class SimFiles;

// A machine folder that cannot be used; what() is one line saying why.
class MachineError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct OpenOptions {
    std::optional<DateTime> now;  // start of the clock; else machine.ini's
    bool frozenClock = false;     // the clock moves only with sleeps (tests, repeatable runs)
    // The local sites' ports by name, for machine.ini's "HOST=site:NAME" lines.
    std::map<std::string, int> sitePorts;
};

class SimMachine : public Host {
public:
    // Loads the folder; throws MachineError.
    static std::unique_ptr<SimMachine> open(const std::filesystem::path& folder,
                                            const OpenOptions& options = {});
    ~SimMachine() override;

    const std::filesystem::path& folder() const;
    // Where a Windows path ("C:\X\y.txt") lives in the machine folder; throws
    // MachineError for an unknown drive.
    std::filesystem::path hostPath(std::string_view windowsPath) const;

    Registry& registry() override;
    Profile& profile() override;
    FileSystem& files() override;
    Clock& clock() override;
    System& system() override;
    Automation& automation() override;
    MakerLibraries& maker() override;
    Internet& internet() override;
    Services& services() override;

    // The sim's own faces of its parts, for tests and for registering more
    // stand-in classes (simAutomation().registerClass(...)).
    SimAutomation& simAutomation();
    SimFiles& simFiles();
    // What the download and zip stand-ins write through (network map, drives).
    const std::shared_ptr<standins::StandinHost>& standinHost() const;
    const MachineConfig& config() const;
    // [Locale] CodePage: what the program's text is in.
    const CodePage& codePage() const;
    // What WMI lists as running: machine.ini [Processes], then the
    // executable itself (the file name of ExePath).
    std::vector<std::string> processes() const;

    struct Impl;

private:
    explicit SimMachine(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> impl_;
};

}  // namespace platform::sim

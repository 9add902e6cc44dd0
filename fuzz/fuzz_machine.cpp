#include "fuzz_machine.h"

#include "config/agent_settings.h"
#include "log/w3c_log.h"

namespace kpmfuzz {

kpmtest::TestMachine& openMachine() {
    static kpmtest::TestMachine* machine = [] {
        auto* m = new kpmtest::TestMachine();
        m->makeFolder(std::string(kpmtest::kProgramFolder) + "\\ApplicationLog");
        m->makeFolder(std::string(kpmtest::kProgramFolder) + "\\Components");
        return m;
    }();
    machine->open(kpmtest::at("2026-11-15T16:10:00"));
    kpm::agentSettings.InstallPath = kpmtest::kInstallPath;
    kpm::LogFilePath = kpmtest::kLogPath;
    return *machine;
}

}  // namespace kpmfuzz

// kpmdwld-check [--now YYYY-MM-DDTHH:MM:SS] [--json] MACHINE_DIR
// What the next pass would do on a simulated machine folder, and why; the
// folder is left as it was (docs/checker.md).
#include <cstdio>
#include <exception>

#include "check/command_line.h"
#include "platform/sim/sim_machine.h"

int main(int argc, char** argv) {
    kpm::check::CommandLine line;
    if (!kpm::check::ParseCommandLine(argc, argv, true, line)) return 2;
    platform::sim::OpenOptions options;
    options.now = line.now;
    options.frozenClock = true;
    std::unique_ptr<platform::sim::SimMachine> machine;
    try {
        machine = platform::sim::SimMachine::open(line.machine, options);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "kpmdwld-check: %s\n", e.what());
        return 2;
    }
    return kpm::check::RunCheckCommand(*machine, line);
}

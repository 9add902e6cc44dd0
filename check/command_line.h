// The command line both builds of the checker share.
#pragma once

#include <optional>
#include <string>

#include "platform/datetime.h"
#include "platform/host.h"

namespace kpm::check {

struct CommandLine {
    std::optional<platform::DateTime> now;  // else the machine's clock
    bool json = false;
    std::string machine;  // the simulated build's machine folder
};

// Parses the arguments; on a mistake prints the usage and returns false.
bool ParseCommandLine(int argc, char** argv, bool wantsMachine, CommandLine& out);
// Runs the check on `machine` (installed as the host while it runs), prints
// the report and returns the exit code.
int RunCheckCommand(platform::Host& machine, const CommandLine& line);

}  // namespace kpm::check

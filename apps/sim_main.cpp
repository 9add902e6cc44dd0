// kpmdwld-sim [--now YYYY-MM-DDTHH:MM:SS] MACHINE_DIR
// Runs one pass of the program on a simulated Windows machine folder and
// exits with the pass's exit code.
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>

#include "driver/main.h"
#include "platform/sim/sim_machine.h"

namespace {

int usage() {
    std::fputs("usage: kpmdwld-sim [--now YYYY-MM-DDTHH:MM:SS] MACHINE_DIR\n", stderr);
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    platform::sim::OpenOptions options;
    std::string folder;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--now") == 0) {
            if (i + 1 >= argc) return usage();
            platform::DateTime now;
            if (!platform::parseIsoDateTime(argv[++i], now)) {
                std::fprintf(stderr, "kpmdwld-sim: --now wants YYYY-MM-DDTHH:MM:SS, got '%s'\n", argv[i]);
                return 2;
            }
            options.now = now;
        } else if (argv[i][0] == '-' || !folder.empty()) {
            return usage();
        } else {
            folder = argv[i];
        }
    }
    if (folder.empty()) return usage();

    std::unique_ptr<platform::sim::SimMachine> machine;
    try {
        machine = platform::sim::SimMachine::open(folder, options);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "kpmdwld-sim: %s\n", e.what());
        return 2;
    }
    platform::setHost(machine.get());
    kpm::resetProcessState();
    int code = 0;
    try {
        kpm::Main();
    } catch (const platform::ProcessEnd& end) {
        code = end.exitCode;
    } catch (const std::exception& e) {
        // Main traps every error itself; reaching here is a defect.
        std::fprintf(stderr, "kpmdwld-sim: pass failed: %s\n", e.what());
        code = 3;
    }
    platform::setHost(nullptr);
    return code;
}

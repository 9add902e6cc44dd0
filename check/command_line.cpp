#include "check/command_line.h"

#include <cstdio>
#include <cstring>
#include <exception>

#include "check/check_host.h"
#include "check/checker.h"

namespace kpm::check {

namespace {

bool usage(bool wantsMachine) {
    std::fprintf(stderr,
                 "usage: %s [--now YYYY-MM-DDTHH:MM:SS] [--json]%s\n"
                 "  Says what the next pass would do here and why: the agent, both download windows,\n"
                 "  the proxy and addresses, the product list, the web-post configuration, warnings.\n"
                 "  Changes nothing, uses no network. Exit 0 all clear, 1 warnings, 2 could not read.\n"
                 "  --now   the moment to judge (default: the clock)\n"
                 "  --json  the same report as one JSON document\n",
                 wantsMachine ? "kpmdwld-check" : "KPMDwld-check.exe", wantsMachine ? " MACHINE_DIR" : "");
    return false;
}

}  // namespace

bool ParseCommandLine(int argc, char** argv, bool wantsMachine, CommandLine& out) {
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--now") == 0 && i + 1 < argc) {
            platform::DateTime now;
            if (!platform::parseIsoDateTime(argv[++i], now)) {
                std::fprintf(stderr, "--now wants YYYY-MM-DDTHH:MM:SS, got '%s'\n", argv[i]);
                return false;
            }
            out.now = now;
        } else if (std::strcmp(argv[i], "--json") == 0) {
            out.json = true;
        } else if (wantsMachine && argv[i][0] != '-' && out.machine.empty()) {
            out.machine = argv[i];
        } else {
            return usage(wantsMachine);
        }
    }
    if (wantsMachine && out.machine.empty()) return usage(wantsMachine);
    return true;
}

int RunCheckCommand(platform::Host& machine, const CommandLine& line) {
    CheckHost host(machine, line.now ? *line.now : machine.clock().now());
    platform::setHost(&host);
    int code = 2;
    try {
        Report report = RunChecks(host);
        const std::string text = line.json ? RenderJson(report) : RenderText(report);
        std::fwrite(text.data(), 1, text.size(), stdout);
        code = report.exitCode();
    } catch (const std::exception& e) {
        std::fprintf(stderr, "could not read the configuration: %s\n", e.what());
    } catch (const platform::ProcessEnd&) {
        std::fprintf(stderr, "could not read the configuration: a reader ended the process\n");
    }
    std::fflush(stdout);
    platform::setHost(nullptr);
    return code;
}

}  // namespace kpm::check

// kpmdwld-sim [--now YYYY-MM-DDTHH:MM:SS] [--frozen-clock] [--sites-ports FILE] MACHINE_DIR
// Runs one pass of the program on a simulated Windows machine folder and
// exits with the pass's exit code. When the pass ends without a word (the
// agent's own rule for an unregistered agent or a second copy), says why on
// stderr: never in the agent's log.
#include <cstdio>
#include <cstring>
#include <exception>
#include <fstream>
#include <map>
#include <string>

#include "driver/main.h"
#include "log/w3c_log.h"
#include "platform/host.h"
#include "platform/sim/sim_machine.h"

namespace {

int usage() {
    std::fputs("usage: kpmdwld-sim [--now YYYY-MM-DDTHH:MM:SS] [--frozen-clock] [--sites-ports FILE] MACHINE_DIR\n"
               "  --now           the moment the pass starts (else machine.ini [Machine] Now, else now)\n"
               "  --frozen-clock  the clock moves only with the program's sleeps: two runs log the same times\n"
               "  --sites-ports   NAME=PORT lines (kpm-sites --ports-file): machine.ini's HOST=site:NAME\n"
               "                  lines send HOST to that local site\n",
               stderr);
    return 2;
}

bool readPorts(const std::string& file, std::map<std::string, int>& ports) {
    std::ifstream in(file);
    if (!in) return false;
    for (std::string line; std::getline(in, line);) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (!line.empty() && line[0] == '#') continue;  // run-pass.sh --keep-sites notes
        const size_t eq = line.find('=');
        if (eq == std::string::npos) continue;
        ports[line.substr(0, eq)] = std::atoi(line.c_str() + eq + 1);
    }
    return true;
}

std::string agentValue(const char* name) {
    std::unique_ptr<platform::RegKey> key;
    platform::RegValue v;
    if (platform::registry().openKey(platform::Hive::LocalMachine, "SOFTWARE\\VORNOD", platform::regaccess::Read,
                                     platform::RegView::Default, key) != platform::regerr::Success ||
        key->queryValue(name, v) != platform::regerr::Success)
        return {};
    std::string s(v.data.begin(), v.data.end());
    while (!s.empty() && (s.back() == '\0' || s.back() == ' ')) s.pop_back();
    return s.substr(s.find_first_not_of(' ') == std::string::npos ? s.size() : s.find_first_not_of(' '));
}

// Why a pass that ended with exit code 0 wrote nothing, or stopped right after
// reading the agent key; empty when it did not end so.
std::string silentEnd() {
    std::unique_ptr<platform::RegKey> key;
    const bool keyThere = platform::registry().openKey(platform::Hive::LocalMachine, "SOFTWARE\\VORNOD",
                                                       platform::regaccess::Read, platform::RegView::Default,
                                                       key) == platform::regerr::Success;
    if (kpm::LogFilePath.empty()) {
        if (!keyThere)
            return "the pass ended before its log: no agent key HKEY_LOCAL_MACHINE\\SOFTWARE\\VORNOD as a 32-bit "
                   "program sees it (SOFTWARE\\Wow6432Node\\VORNOD on 64-bit Windows)";
        if (agentValue("regID").empty()) return "the pass ended before its log: the agent key has no regID";
        std::string folder = agentValue("InstallationPath");
        if (!platform::files().folderExists(folder.empty() ? "\\" : folder))
            return "the pass ended before its log: the install folder \"" + folder + "\" does not exist";
        return "the pass ended before its log: another copy of the program holds its single-instance lock";
    }
    std::string missing;
    for (const char* name : {"SiteID", "MemberID", "Type"})
        if (agentValue(name).empty()) missing += std::string(missing.empty() ? "" : ", ") + name;
    if (!missing.empty()) return "the pass ended after reading the agent key: it has no " + missing;
    return {};
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
        } else if (std::strcmp(argv[i], "--frozen-clock") == 0) {
            options.frozenClock = true;
        } else if (std::strcmp(argv[i], "--sites-ports") == 0) {
            if (i + 1 >= argc) return usage();
            if (!readPorts(argv[++i], options.sitePorts)) {
                std::fprintf(stderr, "kpmdwld-sim: cannot read the sites' ports file '%s'\n", argv[i]);
                return 2;
            }
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
    if (code == 0) {
        try {
            if (const std::string why = silentEnd(); !why.empty()) std::fprintf(stderr, "kpmdwld-sim: %s\n", why.c_str());
        } catch (const std::exception&) {
        }
    }
    platform::setHost(nullptr);
    return code;
}

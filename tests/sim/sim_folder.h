// A throw-away machine folder for the simulated machine's own tests.
#pragma once

#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <sstream>
#include <string>

#include "platform/errors.h"
#include "platform/sim/sim_machine.h"

namespace simtest {

namespace fs = std::filesystem;

// The ComError number an action throws; 0 when it throws none.
inline int thrown(const std::function<void()>& action) {
    try {
        action();
    } catch (const platform::ComError& e) {
        return e.number();
    }
    return 0;
}

inline const char* const kMinimalIni =
    "[Machine]\r\n"
    "ExePath=C:\\Program Files\\VORN\\KPMDwld.exe\r\n";

class SimFolder {
public:
    explicit SimFolder(const std::string& machineIni = kMinimalIni) {
        static std::atomic<int> counter{0};
        const char* tmp = std::getenv("TMPDIR");
        root_ = fs::path(tmp && *tmp ? tmp : "/tmp") / "kpm-sim-tests" /
                (std::to_string(::getpid()) + "-" + std::to_string(counter++));
        fs::remove_all(root_);
        fs::create_directories(root_ / "drives" / "C");
        write("machine.ini", machineIni);
    }
    ~SimFolder() {
        std::error_code ec;
        fs::remove_all(root_, ec);
    }
    SimFolder(const SimFolder&) = delete;
    SimFolder& operator=(const SimFolder&) = delete;

    const fs::path& root() const { return root_; }

    // Host file below the machine folder ("registry.reg", "drives/C/x.txt").
    void write(const std::string& relative, const std::string& text) const {
        fs::path p = root_ / relative;
        fs::create_directories(p.parent_path());
        std::ofstream(p, std::ios::binary) << text;
    }
    std::string read(const std::string& relative) const {
        std::ifstream in(root_ / relative, std::ios::binary);
        std::ostringstream s;
        s << in.rdbuf();
        return s.str();
    }
    bool exists(const std::string& relative) const { return fs::exists(root_ / relative); }

    std::unique_ptr<platform::sim::SimMachine> open(bool frozen = true) const {
        platform::sim::OpenOptions o;
        o.now = platform::DateTime{2026, 11, 15, 16, 10, 0};
        o.frozenClock = frozen;
        return platform::sim::SimMachine::open(root_, o);
    }

private:
    fs::path root_;
};

}  // namespace simtest

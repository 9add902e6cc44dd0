// The contract tests' environment on the simulated machine: a fresh machine
// folder per test.
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <unistd.h>

#include "contract_env.h"
#include "platform/sim/sim_automation.h"
#include "platform/sim/sim_machine.h"
#include "standins/com/echo.h"

namespace contract {

namespace {

namespace fs = std::filesystem;

std::atomic<int> g_counter{0};

void writeText(const fs::path& p, const std::string& text) {
    fs::create_directories(p.parent_path());
    std::ofstream(p, std::ios::binary) << text;
}

// The services Wine's prefix has, as Windows has them: wuauserv does not
// take pauses; LanmanServer is disabled.
const char* const kServiceKeys =
    "[HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Services\\wuauserv]\r\n\"Start\"=dword:00000003\r\n\r\n"
    "[HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Services\\BITS]\r\n\"Start\"=dword:00000003\r\n\r\n"
    "[HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Services\\LanmanServer]\r\n\"Start\"=dword:00000004\r\n\r\n"
    // The hives Windows always has loaded: the default profile's and the user's.
    "[HKEY_USERS\\.DEFAULT\\Software]\r\n\r\n"
    "[HKEY_USERS\\S-1-5-21-0-0-0-1000\\Software]\r\n\r\n";

std::string servicesIni(const std::map<std::string, bool>& running) {
    auto state = [&](const char* name) {
        auto it = running.find(name);
        return it != running.end() && it->second ? "running" : "stopped";
    };
    return std::string("[Services]\r\nwuauserv=") + state("wuauserv") + ", refuse=pause\r\nBITS=" + state("BITS") +
           "\r\nLanmanServer=" + state("LanmanServer") + "\r\n";
}

std::string machineIni(bool withCipher, const std::string& network) {
    std::string ini =
        "[Machine]\r\n"
        "ExePath=C:\\KPMContract\\kpm_contract_tests.exe\r\n"
        "ComputerName=CONTRACT-PC\r\n"
        "[Processes]\r\n"
        "1=System\r\n"
        "2=explorer.exe\r\n"
        "[Drives]\r\n"
        "C=100000000000,40000000000\r\n";
    if (!withCipher) ini += "[Classes]\r\nKEncDec=missing\r\n";
    return ini + network;
}

class SimEnv final : public Env {
public:
    explicit SimEnv(const std::string& test) {
        const char* tmp = std::getenv("TMPDIR");
        root_ = fs::path(tmp && *tmp ? tmp : "/tmp") / "kpm-contract" /
                (std::to_string(::getpid()) + "-" + std::to_string(g_counter++) + "-" + test);
        fs::remove_all(root_);
        writeText(root_ / "registry.reg", std::string("Windows Registry Editor Version 5.00\r\n\r\n") + kServiceKeys);
        folder_ = "C:\\KPMContract\\" + test;
        keyPath_ = "Software\\KPMContract\\" + test;
        fs::create_directories(root_ / "drives" / "C" / "KPMContract" / test);
        // The maker's libraries load while files of their names are beside the program.
        for (const char* dll : {"KDowFile.dll", "KGnMD5.dll"})
            writeText(root_ / "drives" / "C" / "KPMContract" / dll, "MZ");
        open();
        // The maker's COM classes, registered as regsvr32 of the stand-in server registers them under Wine.
        for (const char* dll : {"kWbPost.dll", "kDwnJob.dll", "Chilkatzip2.dll"}) {
            writeText(root_ / "drives" / "C" / "KPMContract" / dll, "MZ");
            platform::sim::registerComServer(machine_->registry(), machine_->files(),
                                             std::string("C:\\KPMContract\\") + dll);
        }
    }
    ~SimEnv() override {
        machine_.reset();
        if (!std::getenv("KPM_KEEP_MACHINES")) {
            std::error_code ec;
            fs::remove_all(root_, ec);
        }
    }

    platform::Host& host() override { return *machine_; }
    bool underWine() const override { return false; }
    void loseCipherLibrary() override {
        withCipher_ = false;
        open();
    }
    void loseMakerLibrary(const std::string& fileName) override {
        fs::remove(root_ / "drives" / "C" / "KPMContract" / fileName);
        open();
    }
    void setNetwork(const std::string& iniSections) override {
        network_ = iniSections;
        open();
    }
    void trustRoot(const std::string& pemFile) override {
        roots_ = pemFile;
        open();
    }
    std::string testerPath(const std::string& path) const override { return path; }
    void setServiceState(const std::string& name, bool running) override {
        running_[name] = running;
        open();
    }
    std::string standinRecord(const std::string& fileName) override {
        std::ifstream in(root_ / fileName, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }

private:
    void open() {
        machine_.reset();
        const std::string certificates = roots_.empty() ? "" : "[Certificates]\r\nRoots=" + roots_ + "\r\n";
        writeText(root_ / "machine.ini", machineIni(withCipher_, network_) + certificates + servicesIni(running_));
        machine_ = platform::sim::SimMachine::open(root_);
        machine_->simAutomation().registerClass(standins::kEchoProgId, [] {
            return platform::Object(std::make_shared<standins::Echo>());
        });
    }

    fs::path root_;
    bool withCipher_ = true;
    std::string network_;
    std::string roots_;
    std::map<std::string, bool> running_;
    std::unique_ptr<platform::sim::SimMachine> machine_;
};

}  // namespace

std::unique_ptr<Env> makeEnv(const std::string& testName) { return std::make_unique<SimEnv>(testName); }

}  // namespace contract

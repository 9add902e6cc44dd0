// The contract tests' environment on the simulated machine: a fresh machine
// folder per test.
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
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
        writeText(root_ / "registry.reg", "Windows Registry Editor Version 5.00\r\n\r\n");
        folder_ = "C:\\KPMContract\\" + test;
        keyPath_ = "Software\\KPMContract\\" + test;
        fs::create_directories(root_ / "drives" / "C" / "KPMContract" / test);
        // The maker's libraries load while files of their names are beside the program.
        for (const char* dll : {"KDowFile.dll", "KGnMD5.dll"})
            writeText(root_ / "drives" / "C" / "KPMContract" / dll, "MZ");
        open();
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
    std::string testerPath(const std::string& path) const override { return path; }

private:
    void open() {
        machine_.reset();
        writeText(root_ / "machine.ini", machineIni(withCipher_, network_));
        machine_ = platform::sim::SimMachine::open(root_);
        machine_->simAutomation().registerClass(standins::kEchoProgId, [] {
            return platform::Object(std::make_shared<standins::Echo>());
        });
    }

    fs::path root_;
    bool withCipher_ = true;
    std::string network_;
    std::unique_ptr<platform::sim::SimMachine> machine_;
};

}  // namespace

std::unique_ptr<Env> makeEnv(const std::string& testName) { return std::make_unique<SimEnv>(testName); }

}  // namespace contract

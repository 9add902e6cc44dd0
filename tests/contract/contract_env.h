// The contract tests: one set of test bodies run against two bindings of the
// platform interfaces, the simulated machine (natively) and the Windows
// binding (cross-compiled, under wine64). Where they agree with each other
// and with Windows, the simulated machine can stand in for a computer.
//
// Each test gets an environment of its own: a fresh simulated machine, or,
// under Wine, fresh registry keys and a fresh folder in the prefix.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "platform/host.h"

namespace contract {

// The name of a test's own keys under HKCR (a ProgID, and a key of that name
// under CLSID), from its keyPath(): "KPMContract.<test>".
inline std::string classKeyName(const std::string& keyPath) {
    return "KPMContract." + keyPath.substr(keyPath.rfind('\\') + 1);
}

class Env {
public:
    virtual ~Env() = default;

    virtual platform::Host& host() = 0;
    virtual bool underWine() const = 0;

    // An empty folder of this test's own, "C:\KPMContract\<test>" (no final "\").
    const std::string& folder() const { return folder_; }
    // A registry path of this test's own below HKCU and HKLM\SOFTWARE:
    // "Software\KPMContract\<test>". Nothing exists there at the start.
    const std::string& keyPath() const { return keyPath_; }

    // False where the file system lets a read-only file be opened for
    // writing: Wine run by root (Unix permissions do not stop root), never
    // Windows.
    virtual bool readOnlyStopsWriting() { return true; }

    // Replaces the host with one on which the maker's cipher library cannot
    // be loaded.
    virtual void loseCipherLibrary() = 0;

    // The maker's download and checksum libraries ("KDowFile.dll",
    // "KGnMD5.dll") are loadable from the start. Replaces the host with one on
    // which the named one cannot be loaded.
    virtual void loseMakerLibrary(const std::string& fileName) = 0;

    // Where the download stand-ins' hosts go: INI sections [Network] and
    // [Downloads] as the stand-ins read them (machine.ini on the simulated
    // machine, the stand-ins' network.ini on Windows). Replaces the host.
    virtual void setNetwork(const std::string& iniSections) = 0;

    // Adds the certificate of a PEM file (a tester's path) to the machine's
    // trusted roots: machine.ini [Certificates] Roots on the simulated
    // machine, the local machine's Root store on Windows (under Wine the
    // prefix's own, never the host's).
    virtual void trustRoot(const std::string& pemFile) = 0;

    // The text of a stand-in's record file ("update-downloads.log"): in the
    // machine folder on the simulated machine, beside the stand-ins'
    // network.ini on Windows (after setNetwork). Empty when there is none.
    virtual std::string standinRecord(const std::string& fileName) = 0;

    // A file of the computer running the tests (a fixture's) as this
    // binding's programs name it: the path itself, or under Wine the same
    // file on drive Z:.
    virtual std::string testerPath(const std::string& path) const = 0;

    // Puts a service of the computer into "stopped" or "running" before a
    // test: the simulated machine is told so (and replaced, like its host);
    // under Wine the service is really stopped or started. Both machines have
    // "wuauserv" (demand start, no pause), "BITS" (demand start, pausable)
    // and "LanmanServer" (disabled), stopped at first on the simulated one.
    virtual void setServiceState(const std::string& name, bool running) = 0;

protected:
    std::string folder_, keyPath_;
};

// Defined once per binding (env_sim.cpp, env_win32.cpp).
std::unique_ptr<Env> makeEnv(const std::string& testName);

// The fixture of every contract test: installs the test's environment as
// the platform host.
class ContractTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    platform::Host& host() { return env_->host(); }
    Env& env() { return *env_; }
    const Env& env() const { return *env_; }
    // A path in the test's folder: at("a\b.txt") is "C:\KPMContract\<test>\a\b.txt".
    std::string at(std::string_view relative) const;
    // Re-installs the host after the environment replaced it.
    void reinstallHost();

private:
    std::unique_ptr<Env> env_;
};

// A unique text for names that live beyond one process (mutexes).
std::string uniqueSuffix();

// The error a call fails with; number 0 when it does not fail.
template <class F>
platform::ComError errorOf(F&& f) {
    try {
        f();
    } catch (const platform::ComError& e) {
        return e;
    }
    return platform::ComError(0, "", "");
}

// The sites server the contract fixture started (scripts/sites-fixture.sh):
// its folder ($KPM_SITES_DIR) and its ports by name, read through `env`.
// Empty ports, with `why` said, when no server runs.
struct SitesServer {
    std::string dir;
    std::map<std::string, int> ports;
    std::string why;
};
SitesServer findSitesServer(const Env& env);

}  // namespace contract

// The component check of a Microsoft pass: what it registers with regsvr32,
// what it leaves alone, and how a component that cannot be registered ends
// the pass.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "driver/run_state.h"
#include "support/test_machine.h"

using kpmtest::at;
using kpmtest::TestMachine;

namespace {

const std::string kInstall = kpmtest::kInstallPath;
const std::string kJobDll = kInstall + "kDwnJob.dll";
const char* kJobProgIdKey = "[HKEY_CLASSES_ROOT\\kDwnJob.JobDownload\\CLSID]\r\n"
                            "@=\"{5B7E2D41-9C3A-4F18-A62E-71D40B93C56F}\"\r\n";
const char* kJobServerKey = "[HKEY_CLASSES_ROOT\\CLSID\\{5B7E2D41-9C3A-4F18-A62E-71D40B93C56F}\\InprocServer32]\r\n"
                            "@=\"C:\\\\Program Files\\\\VORN\\\\VORNMobile\\\\kDwnJob.dll\"\r\n";
const char* kMachine = "[Machine]\r\n"
                       "ExePath=C:\\Program Files\\VORN\\VORNMobile\\BaseComponents\\PatchManagement\\KPMDwld.exe\r\n";

std::string without(std::string text, const std::string& part) {
    size_t at = text.find(part);
    if (at != std::string::npos) text.erase(at, part.size());
    return text;
}

std::string replaced(std::string text, const std::string& from, const std::string& to) {
    size_t at = text.find(from);
    if (at != std::string::npos) text.replace(at, from.size(), to);
    return text;
}

std::vector<std::string> entriesOf(const TestMachine& m, const std::string& module) {
    std::vector<std::string> out;
    for (const auto& e : m.logMessages())
        if (e.rfind(module + "|", 0) == 0) out.push_back(e);
    return out;
}

}  // namespace

TEST(RegisteDLL, ComponentsPresentRegisteredOrEndingThePass) {
    const std::string done = "ModRegister|RegisteDLL|INFO|DLL check completed Successfully.|||";
    const std::string regsvr32Job = "regsvr32.exe -s \"" + kJobDll + "\"\n";
    struct Case {
        const char* name;
        std::function<void(TestMachine&)> setUp;
        std::string started;                    // started-processes.log
        std::vector<std::string> checkEntries;  // the ModRegister entries
        std::string errorTrail;                 // what the check added
        bool passGoesOn;
    };
    const Case cases[] = {
        {"every component registered", [](TestMachine&) {}, "", {done}, "", true},
        {"ProgID not registered (429): regsvr32 registers its DLL",
         [](TestMachine& m) { m.setRegistry(without(TestMachine::agentRegistry(), kJobProgIdKey)); },
         regsvr32Job,
         {done},
         "",
         true},
        {"registered, DLL gone (0x8007007E): regsvr32 cannot help",
         [](TestMachine& m) { m.removeFile(kJobDll); },
         regsvr32Job,
         {"ModRegister|RegisteDLL|ERROR|Could Not Register.|" + kJobDll + "||"},
         " Could Not Register" + kJobDll,
         false},
        {"Windows' own class missing: its DLL in the system folder",
         [](TestMachine& m) {
             m.setMachineIni(std::string(kMachine) + "[Classes]\r\nMicrosoft.Update.Session=missing\r\n");
         },
         "regsvr32.exe -s \"C:\\WINDOWS\\System32\\wuapi.dll\"\n",
         {"ModRegister|RegisteDLL|ERROR|Could Not Register.|C:\\WINDOWS\\System32\\wuapi.dll||"},
         " Could Not RegisterC:\\WINDOWS\\System32\\wuapi.dll",
         false},
        {"another creation error (a DLL that does not serve the class) counts as present",
         [](TestMachine& m) {
             m.setRegistry(
                 replaced(TestMachine::agentRegistry(), "VORNMobile\\\\kWbPost.dll", "VORNMobile\\\\kDwnJob.dll"));
         },
         "",
         {done},
         "",
         true},
        {"no Windows folder",
         [](TestMachine& m) { m.setMachineIni(std::string(kMachine) + "SystemDirectory=C:\\Gone\\system32\r\n"); },
         "",
         {"ModRegister|RegisteDLL|ERROR|Could not retrieve Windows path.|||"},
         " Could Not retrieve Windows path",
         false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        TestMachine m;
        // The Microsoft window is open; no product is configured, so the pass
        // goes from the component check straight to the third-party part.
        m.writeFile(std::string(kpmtest::kProgramFolder) + "\\MSUpd.xml",
                    "<patchmanagement><autopatchdeploy><c0>1</c0><c1></c1><c2>0</c2><c3>1,2,3,4,5,6,7</c3>"
                    "<c4>16:00</c4><c5>17:00</c5></autopatchdeploy></patchmanagement>");
        m.writeFile(std::string(kpmtest::kProgramFolder) + "\\KDowFile.dll", "MZ");  // nothing to fetch
        c.setUp(m);
        const std::string registryBefore = m.registryText();

        EXPECT_EQ(m.runPass(at("2026-11-15T16:10:00")), 0);
        EXPECT_EQ(entriesOf(m, "ModRegister"), c.checkEntries);
        EXPECT_EQ(kpm::runState.ErrorTrail, c.errorTrail);
        auto msgs = m.logMessages();
        ASSERT_FALSE(msgs.empty());
        EXPECT_EQ(msgs.back(), "ModComman|CloseAll|INFO|Application stopped.|||");
        const std::string separator = "ModMain|Main|INFO|" + std::string(53, '-') + "|||";
        EXPECT_EQ(std::count(msgs.begin(), msgs.end(), separator), c.passGoesOn ? 1 : 0);
        EXPECT_EQ(kpmtest::readHostFile(m.root() / "started-processes.log"), c.started);
        const std::string registry = m.registryText();
        if (c.started == regsvr32Job && c.passGoesOn) {
            // regsvr32 wrote the class's keys, the way the DLL registers itself.
            EXPECT_NE(registry.find(kJobProgIdKey), std::string::npos) << registry;
            EXPECT_NE(registry.find(kJobServerKey), std::string::npos) << registry;
        } else {
            EXPECT_EQ(registry, registryBefore);
        }
    }
}

// The Automatic Updates policy and the Microsoft Update registration, run by
// the program's own procedures on both bindings: the values land in the
// views they are written through, and the log says the same on both.
#include "contract_env.h"
#include "driver/main.h"
#include "log/w3c_log.h"
#include "platform/files.h"
#include "platform/registry.h"
#include "wuenv/environment.h"
#include "wuenv/registry_policy.h"

namespace {

using namespace platform;
using contract::ContractTest;

const char* const kAutoUpdate = "SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\WindowsUpdate\\Auto Update";
const char* const kService = "SYSTEM\\CurrentControlSet\\Services\\wuauserv";
const char* const kSecurityCenter = "SOFTWARE\\Microsoft\\Security Center";
const char* const kPending =
    "Software\\Microsoft\\Windows\\CurrentVersion\\WindowsUpdate\\PendingServiceRegistration\\"
    "7971f918-a847-4430-9279-4a52d1efe18d";

class Policy : public ContractTest {
protected:
    void SetUp() override {
        ContractTest::SetUp();
        kpm::resetProcessState();
        kpm::LogFilePath = at("policy.log");
    }
    void TearDown() override {
        kpm::resetProcessState();
        ContractTest::TearDown();
    }

    void setDword(const char* path, RegView view, const char* name, uint32_t value) {
        std::unique_ptr<RegKey> k;
        ASSERT_EQ(regerr::Success, registry().createKey(Hive::LocalMachine, path, view, k)) << path;
        ASSERT_EQ(regerr::Success, k->setValue(name, RegValue::dword(value)));
    }
    // The value's bytes up to the first NUL, "<missing>" when there is none.
    std::string read(const char* path, RegView view, const char* name) {
        std::unique_ptr<RegKey> k;
        RegValue v;
        if (registry().openKey(Hive::LocalMachine, path, regaccess::Read, view, k) != regerr::Success ||
            k->queryValue(name, v) != regerr::Success)
            return "<missing>";
        if (v.type == regtype::Dword) return "dword:" + std::to_string(v.data[0] | v.data[1] << 8);
        std::string s(v.data.begin(), v.data.end());
        return s.substr(0, s.find('\0'));
    }
    // The log's entries without their date-time.
    std::vector<std::string> log() {
        std::vector<std::string> out;
        std::string text = files().readAll(kpm::LogFilePath);
        for (size_t pos = 0; (pos = text.find('\t')) != std::string::npos;) {
            size_t end = text.find("\r\n", pos);
            out.push_back(text.substr(pos + 1, end - pos - 1));
            text.erase(0, end + 2);
        }
        return out;
    }
};

TEST_F(Policy, AutoUpdateRegWritesEachValueThroughItsView) {
    setDword(kAutoUpdate, RegView::View64, "AUOptions", 4);
    setDword(kService, RegView::Default, "Start", 3);
    {
        // Stored as text: the repair path, whatever an earlier run left there.
        std::unique_ptr<RegKey> k;
        ASSERT_EQ(regerr::Success, registry().createKey(Hive::LocalMachine, kSecurityCenter, RegView::Default, k));
        ASSERT_EQ(regerr::Success, k->setValue("UpdatesDisableNotify", RegValue::string("1")));
    }
    kpm::environment.OSProductName = "Microsoft Windows XP";

    kpm::AutoUpdateReg();

    EXPECT_EQ("dword:1", read(kAutoUpdate, RegView::View64, "AUOptions"));
    EXPECT_EQ("dword:2", read(kService, RegView::Default, "Start"));
    EXPECT_EQ("dword:1", read(kSecurityCenter, RegView::Default, "UpdatesDisableNotify"));
    const std::string au = kAutoUpdate, svc = kService, sc = kSecurityCenter;
    EXPECT_EQ(log(), (std::vector<std::string>{
                         "ModMain\tSetRegDwordValue64\tINFO\tModifying Registry Values\tAUOptions\t\t",
                         "ModMain\tSetRegDwordValue64\tINFO\tUPDATED REGISTRY VALUE\tAUOptions\t" + au + "\t",
                         "ModMain\tSetRegDwordValue64\tINFO\tSuccessfully modified Registry Values\tAUOptions\t" + au + "\t1",
                         "ModMain\tSetRegDwordValue\tINFO\tModifying Registry Values\tUpdatesDisableNotify\t\t",
                         "ModMain\tSetRegDwordValue\tINFO\tREGISTRY VALUE IS CORRUPTED\t" + sc + "\t\t",
                         "ModMain\tSetRegDwordValue\tINFO\tREGISTRY VALUE TURNED OFF \tUpdatesDisableNotify\t" + sc + "\t",
                         "ModMain\tSetRegDwordValue\tINFO\tSuccessfully modified Registry Values\tUpdatesDisableNotify\t" + sc + "\t1",
                         "ModMain\tSetRegDwordValue\tINFO\tModifying Registry Values\tStart\t\t",
                         "ModMain\tSetRegDwordValue\tINFO\tUPDATED REGISTRY VALUE\tStart\t" + svc + "\t",
                         "ModMain\tSetRegDwordValue\tINFO\tSuccessfully modified Registry Values\tStart\t" + svc + "\t2",
                     }));
}

TEST_F(Policy, MicrosoftUpdateIsRegisteredWithTheServiceManager) {
    kpm::environment.OSName = "Microsoft Windows Vista Business";
    kpm::subWUMSSwitch();
    // The pending registration is written through the program's own (32-bit) view.
    EXPECT_EQ("My App", read(kPending, RegView::Default, "ClientApplicationID"));
    EXPECT_EQ("1", read(kPending, RegView::Default, "RegisterWithAU"));
    const std::string pending = kPending;
    EXPECT_EQ(log(), (std::vector<std::string>{
                         "ModMSUpdate\tsubMURegistryKeys\tINFO\tUpdating Values to Registry for Microsoft Update\t" +
                             pending + "\tClientApplicationID\t",
                         "ModMSUpdate\tsubMURegistryKeys\tINFO\tUpdating Values to Registry for Microsoft Update\t" +
                             pending + "\tRegisterWithAU\t",
                         "ModMSUpdate\tsubWUMSSwitch\tINFO\tUpdating Values to Registry for Microsoft Update.\t\t\t",
                     }));
}

}  // namespace

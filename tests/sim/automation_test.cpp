// Objects on the simulated machine: the class table, WMI, the file-system
// object, the update service manager stand-in and the maker's cipher.
#include <gtest/gtest.h>

#include <functional>

#include "platform/sim/sim_automation.h"
#include "sim/sim_folder.h"
#include "standins/dispatch_base.h"
#include "standins/update_agent.h"

using platform::ComError;
using platform::Object;
using platform::Variant;
using simtest::SimFolder;
using simtest::thrown;

namespace {

std::vector<std::string> captions(Object set) {
    std::vector<std::string> out;
    for (const auto& item : set.items()) out.push_back(item.toObject().get("Caption").toString());
    return out;
}

}  // namespace

TEST(SimAutomation, WmiListsProcessesAndTheOperatingSystem) {
    SimFolder f(std::string(simtest::kMinimalIni) +
                "[Processes]\r\n1=System\r\n2=explorer.exe\r\n3=svchost.exe\r\n"
                "[OS]\r\nCaption=Microsoft Windows 10 Pro\r\nCSDVersion=\r\nServicePackMajor=0\r\n");
    auto m = f.open();
    Object wmi = m->automation().getObject("winmgmts:{impersonationLevel=impersonate}!\\\\.\\root\\cimv2");
    Object procs = wmi.call("InstancesOf", "Win32_Process").toObject();
    EXPECT_EQ(captions(procs), (std::vector<std::string>{"System", "explorer.exe", "svchost.exe", "KPMDwld.exe"}));
    EXPECT_EQ(procs.get("Count").toLong(), 4);
    EXPECT_EQ(procs.call("ItemIndex", 1).toObject().get("Name").toString(), "explorer.exe");

    Object found = wmi.call("ExecQuery", "Select * from Win32_Process where Name = 'KPMDWLD.EXE'").toObject();
    EXPECT_EQ(captions(found), (std::vector<std::string>{"KPMDwld.exe"}));
    EXPECT_EQ(captions(wmi.call("ExecQuery", "SELECT Caption FROM Win32_Process WHERE Caption=\"none.exe\"").toObject()),
              std::vector<std::string>{});

    auto os = m->automation().getObject("WINMGMTS:").call("InstancesOf", "Win32_OperatingSystem").toObject().items();
    ASSERT_EQ(os.size(), 1u);
    std::string facts;
    for (const char* p : {"Caption", "ServicePackMajorVersion", "OSArchitecture"})
        facts += os[0].toObject().get(p).toString() + "|";
    EXPECT_EQ(facts, "Microsoft Windows 10 Pro|0|64-bit|");
    EXPECT_TRUE(os[0].toObject().get("Csdversion").isNull());  // as WMI has it without a service pack

    EXPECT_EQ(thrown([&] { wmi.call("InstancesOf", "Win32_Nothing"); }), static_cast<int32_t>(0x80041010));
    EXPECT_EQ(thrown([&] { wmi.call("ExecQuery", "DELETE everything"); }), static_cast<int32_t>(0x80041017));
    EXPECT_EQ(thrown([&] { wmi.call("ExecQuery", "SELECT * FROM Win32_Process WHERE Bogus = 'x'"); }),
              static_cast<int32_t>(0x80041017));
}

TEST(SimAutomation, ClassTableAndBrokenClasses) {
    SimFolder f(std::string(simtest::kMinimalIni) +
                "[Classes]\r\nscripting.filesystemobject=missing\r\nMicrosoft.Update.ServiceManager=badmodule\r\n"
                "winmgmts=missing\r\nUnknown.Thing=ok\r\n");
    auto m = f.open();
    auto& a = m->automation();
    EXPECT_EQ(thrown([&] { a.createObject("Scripting.FileSystemObject"); }), 429);
    EXPECT_EQ(thrown([&] { a.createObject("Microsoft.Update.ServiceManager"); }), static_cast<int32_t>(0x8007007E));
    EXPECT_EQ(thrown([&] { a.createObject("Unknown.Thing"); }), 429);
    EXPECT_EQ(thrown([&] { a.getObject("winmgmts:"); }), 429);

    // More classes can be registered; [Classes] still applies to them.
    int made = 0;
    m->simAutomation().registerClass("Test.Made", [&made] {
        ++made;
        return Object(std::make_shared<standins::PropertyBag>(
            "Test.Made", std::vector<std::pair<std::string, Variant>>{{"Answer", Variant(42)}}));
    });
    EXPECT_EQ(a.createObject("test.made").get("Answer").toLong(), 42);
    EXPECT_EQ(made, 1);

    // A maker's class is there only as the registry registers it, and regsvr32
    // registers the DLLs the machine knows. Steps in order, each with what
    // CreateObject then gives (0: created).
    f.write("drives/C/Agent/kDwnJob.dll", "MZ");
    f.write("drives/C/Agent/other.dll", "MZ");
    auto& sys = m->system();
    const int32_t moduleNotFound = static_cast<int32_t>(0x8007007E);
    struct Step {
        const char* what;
        std::function<void()> action;
        int32_t number;
    } steps[] = {
        {"not registered", [] {}, 429},
        {"regsvr32 /u", [&] { sys.startHidden("regsvr32 /s /u C:\\Agent\\kDwnJob.dll"); }, 429},
        {"regsvr32 of a DLL the machine does not know",
         [&] { sys.startHidden("regsvr32.exe -s \"C:\\Agent\\other.dll\""); }, 429},
        {"regsvr32 of a DLL that is not there",
         [&] { sys.startHidden("regsvr32.exe -s \"C:\\Nowhere\\kDwnJob.dll\""); }, 429},
        {"regsvr32", [&] { sys.startHidden("regsvr32.exe -s \"C:\\Agent\\kDwnJob.dll\""); }, 0},
        {"its DLL deleted", [&] { m->files().deleteFile("C:\\Agent\\kDwnJob.dll"); }, moduleNotFound},
    };
    for (const auto& s : steps) {
        s.action();
        EXPECT_EQ(thrown([&] { a.createObject("KDWNJOB.JOBDOWNLOAD"); }), s.number) << s.what;
    }
    EXPECT_EQ(f.read("started-processes.log"),
              "regsvr32 /s /u C:\\Agent\\kDwnJob.dll\n"
              "regsvr32.exe -s \"C:\\Agent\\other.dll\"\n"
              "regsvr32.exe -s \"C:\\Nowhere\\kDwnJob.dll\"\n"
              "regsvr32.exe -s \"C:\\Agent\\kDwnJob.dll\"\n");
}

TEST(SimAutomation, FileSystemObjectUsesTheMachinesFiles) {
    SimFolder f;
    f.write("drives/C/Data/ro.txt", "x");
    auto m = f.open();
    m->files().setReadOnly("C:\\Data\\ro.txt", true);
    Object fso = m->automation().createObject("Scripting.FileSystemObject");
    EXPECT_FALSE(fso.call("FolderExists", "Q:\\").toBool());
    EXPECT_TRUE(fso.call("DriveExists", "C:").toBool());
    EXPECT_FALSE(fso.call("DriveExists", "Q").toBool());
    EXPECT_EQ(fso.call("GetFileName", "C:\\Data\\a.txt").toString(), "a.txt");
    EXPECT_EQ(fso.call("GetParentFolderName", "C:\\Data\\a.txt").toString(), "C:\\Data");
    EXPECT_EQ(fso.call("GetParentFolderName", "C:\\Data").toString(), "C:\\");
    EXPECT_EQ(fso.call("BuildPath", "C:\\Data", "b.txt").toString(), "C:\\Data\\b.txt");
    EXPECT_EQ(fso.call("BuildPath", "C:\\", "b.txt").toString(), "C:\\b.txt");

    EXPECT_EQ(thrown([&] { fso.call("DeleteFile", "C:\\Data\\ro.txt"); }), 70);
    fso.call("DeleteFile", "C:\\Data\\ro.txt", true);
    EXPECT_FALSE(f.exists("drives/C/Data/ro.txt"));
    EXPECT_EQ(thrown([&] { fso.call("CreateFolder", "C:\\Data"); }), 58);
    fso.call("DeleteFolder", "C:\\Data", true);
    EXPECT_FALSE(f.exists("drives/C/Data"));
}

TEST(SimAutomation, ServiceManagerRecordsWhatItWasAsked) {
    SimFolder f;
    auto m = f.open();
    Object sm = m->automation().createObject("Microsoft.Update.ServiceManager");
    sm.put("ClientApplicationID", "My App");
    Object reg = sm.call("AddService2", standins::kMicrosoftUpdateServiceId, 7, "").toObject();
    EXPECT_EQ(reg.get("RegistrationState").toLong(), 3);
    Object service = reg.obj("Service");
    EXPECT_EQ(service.get("Name").toString(), "Microsoft Update");
    EXPECT_TRUE(service.get("IsRegisteredWithAU").toBool());

    const std::string expected =
        "[ServiceManager]\n"
        "ClientApplicationID=My App\n"
        "[Service 7971f918-a847-4430-9279-4a52d1efe18d]\n"
        "Flags=7\n"
        "AuthorizationCabPath=\n"
        "ClientApplicationID=My App\n";
    EXPECT_EQ(f.read("update-services.ini"), expected);

    // A later object (a later pass) adds to the record and updates its entries.
    Object again = m->automation().createObject("Microsoft.Update.ServiceManager");
    again.call("AddService2", "3DA21691-E39D-4da6-8A4B-B43877BCB1B7", 4, "C:\\auth.cab");
    again.call("AddService2", standins::kMicrosoftUpdateServiceId, 2, "");
    EXPECT_EQ(f.read("update-services.ini"),
              "[ServiceManager]\n"
              "ClientApplicationID=My App\n"
              "[Service 7971f918-a847-4430-9279-4a52d1efe18d]\n"
              "Flags=2\n"
              "AuthorizationCabPath=\n"
              "ClientApplicationID=\n"
              "[Service 3DA21691-E39D-4da6-8A4B-B43877BCB1B7]\n"
              "Flags=4\n"
              "AuthorizationCabPath=C:\\auth.cab\n"
              "ClientApplicationID=\n");
}

TEST(SimAutomation, ServiceManagerRejectsWhatTheAgentRejects) {
    SimFolder f;
    auto m = f.open();
    Object sm = m->automation().createObject("Microsoft.Update.ServiceManager");
    const int32_t invalidArg = static_cast<int32_t>(0x80070057);
    struct Case {
        const char* id;
        int flags;
        const char* cab;
    } cases[] = {
        {"not-a-guid", 7, ""},
        {"{7971f918-a847-4430-9279-4a52d1efe18d}", 7, ""},
        {standins::kMicrosoftUpdateServiceId, 8, ""},
        {standins::kMicrosoftUpdateServiceId, 2, "C:\\auth.cab"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(thrown([&] { sm.call("AddService2", c.id, c.flags, c.cab); }), invalidArg) << c.id;
    EXPECT_FALSE(f.exists("update-services.ini"));
    EXPECT_EQ(thrown([&] { sm.call("AddService2", standins::kMicrosoftUpdateServiceId, 7); }), 450);
}

TEST(SimAutomation, DispatchBaseChecksArgumentRangesAndPuts) {
    Object items(std::make_shared<standins::Collection>("Probe", std::vector<Variant>{Variant(7)}));
    struct Case {
        const char* what;
        std::function<void()> action;
        int number;
    } cases[] = {
        {"too few arguments", [&] { items.call("Item"); }, 450},
        {"argument to a property", [&] { items.get("Count", 1); }, 450},
        {"put on a read-only property", [&] { items.put("Count", 2); }, 438},
        {"index past the end", [&] { items.call("Item", 1); }, 9},
    };
    for (const auto& c : cases) EXPECT_EQ(thrown(c.action), c.number) << c.what;
    try {
        items.call("Nope");
        ADD_FAILURE() << "no error";
    } catch (const ComError& e) {
        EXPECT_EQ(e.source(), "Probe");
    }
}

TEST(SimAutomation, ANegativeCipherLengthChangesNothing) {
    SimFolder f;
    auto m = f.open();
    std::string text = "abcdef";
    m->maker().encryptData(text, -1);
    EXPECT_EQ(text, "abcdef");
}

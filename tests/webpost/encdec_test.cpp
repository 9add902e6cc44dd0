// EncDecXML: the whole file through KEncDec; any failure ends the pass.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "driver/run_state.h"
#include "log/w3c_log.h"
#include "platform/errors.h"
#include "standins/cipher.h"
#include "../schedule/schedule_fixture.h"
#include "support/test_machine.h"
#include "webpost/site_config.h"

namespace {

const std::string kConfig = std::string(kpmtest::kInstallPath) + "Configuration\\wpConfig.xml";
const std::string kPlain = "<?xml version=\"1.0\"?>\r\n<config>\r\n  <fod id=\"NDATAPOST\"/>\r\n</config>\r\n";

std::string machineIni(const std::string& classes) {
    return "[Machine]\r\n"
           "ExePath=C:\\Program Files\\VORN\\VORNMobile\\BaseComponents\\PatchManagement\\KPMDwld.exe\r\n"
           "ComputerName=demo-pc\r\nIs64BitOS=1\r\n[Processes]\r\n1=System\r\n" + classes;
}

class EncDec : public ::testing::Test {
protected:
    void open() {
        schedtest::openWithLog(machine, "2026-11-15T16:10:00");
        logStart = machine.logMessages().size();
    }
    void TearDown() override { machine.close(); }
    std::vector<std::string> newLog() const {
        auto all = machine.logMessages();
        return {all.begin() + static_cast<long>(logStart), all.end()};
    }
    kpmtest::TestMachine machine;
    size_t logStart = 0;
};

TEST_F(EncDec, TransformsTheWholeFileWithoutChangingIt) {
    std::string cipherText = kPlain;
    standins::cipherEncrypt(cipherText, cipherText.size());
    machine.writeFile(kConfig, cipherText);
    open();
    EXPECT_EQ(kpm::EncDecXML(false, kConfig), kPlain);
    EXPECT_EQ(kpm::EncDecXML(true, kConfig), [&] {
        std::string twice = cipherText;
        standins::cipherEncrypt(twice, twice.size());
        return twice;
    }());
    EXPECT_EQ(machine.read(kConfig), cipherText);
    EXPECT_EQ(newLog(), (std::vector<std::string>{"ModComman|EncDecXML|INFO|File decrypted successfully.|||",
                                                  "ModComman|EncDecXML|INFO|File encrypted successfully.|||"}));
}

TEST_F(EncDec, FailuresEndThePassThroughCloseAll) {
    struct Case {
        const char* why;
        const char* content;  // nullptr: no file
        std::string classes;  // machine.ini [Classes]
        std::string numberAndText;
        std::function<void()> caller;
    };
    const std::vector<Case> cases = {
        {"missing file", nullptr, "", "53_File not found", [] { kpm::EncDecXML(false, kConfig); }},
        {"empty file", "", "", "62_Input past end of file", [] { kpm::EncDecXML(false, kConfig); }},
        {"KEncDec not installed", "x", "[Classes]\r\nKEncDec=missing\r\n", "53_File not found: KEncDec",
         [] { kpm::EncDecXML(false, kConfig); }},
        {"KEncDec does not load", "x", "[Classes]\r\nKEncDec=badmodule\r\n", "48_Error in loading DLL",
         [] { kpm::EncDecXML(true, kConfig); }},
        // The end passes through the callers' own traps.
        {"from Create_Data_Log_Files", nullptr, "", "53_File not found", [] { kpm::Create_Data_Log_Files(); }},
        {"from subReadXMLWebpost", "", "", "62_Input past end of file", [] { kpm::subReadXMLWebpost("wppthdwldinfo"); }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        machine.removeFile(kConfig);
        if (c.content) machine.writeFile(kConfig, c.content);
        machine.setMachineIni(machineIni(c.classes));
        open();
        kpm::runState.ErrorTrail = " earlier : 0 : 5";

        EXPECT_THROW(c.caller(), platform::ProcessEnd);
        EXPECT_EQ(kpm::runState.ErrorTrail, " earlier : 0 : 5 File encryption and decryption " + c.numberAndText);
        const std::string number = c.numberAndText.substr(0, c.numberAndText.find('_'));
        const std::string text = c.numberAndText.substr(c.numberAndText.find('_') + 1);
        auto log = newLog();
        ASSERT_GE(log.size(), 2u);
        EXPECT_EQ(log[0].rfind("ModComman|EncDecXML|ERROR|" + number + "|" + text + "|", 0), 0u) << log[0];
        EXPECT_EQ(log.back(), "ModComman|CloseAll|INFO|Application stopped.|||");
        for (const auto& line : log) EXPECT_EQ(line.find("Creating Data Files"), std::string::npos);
        EXPECT_EQ(kpm::webPostSite.PrimaryWebPostUrl, "");
        machine.close();
    }
}

}  // namespace

// "wpConfig.xml": the data folders, the decryption through KEncDec (whose
// failures end the pass) and the entry for a document kind.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "driver/run_state.h"
#include "platform/errors.h"
#include "standins/cipher.h"
#include "../schedule/schedule_fixture.h"
#include "webpost/site_config.h"

using kpm::webPostSite;

namespace {

const std::string kConfig = std::string(kpmtest::kInstallPath) + "Configuration\\wpConfig.xml";
const std::string kDecrypted = "ModComman|EncDecXML|INFO|File decrypted successfully.|||";

// An entry: eleven attributes by position (names are free).
std::string entry(const std::vector<std::string>& a) {
    std::string out = "<e";
    for (size_t i = 0; i < a.size(); ++i) out += " a" + std::to_string(i) + "=\"" + a[i] + "\"";
    return out + "/>";
}

// An entry for `key` with the root element named as the key: scheme, first
// host pair, pair selector, second host pair, encryption flag.
std::string doc(const std::string& scheme, const std::string& p1, const std::string& s1, const std::string& pair = "0",
                const std::string& p2 = "", const std::string& s2 = "", const std::string& flag = "0",
                const std::string& key = "wppthdwldinfo") {
    return entry({key, "asp", key, "x", scheme, p1, s1, pair, p2, s2, flag});
}

std::string config(const std::string& pr4Children) {
    return "<?xml version=\"1.0\"?>\r\n<config>\r\n  <fod id=\"NDATAPOST\" v=\"1\">\r\n    <PR4>\r\n      " +
           pr4Children + "\r\n    </PR4>\r\n  </fod>\r\n</config>\r\n";
}

const std::string kDwld = doc("0", "127.0.0.1:18080", "127.0.0.1:18081", "0", "h8", "h9");

class SiteConfig : public schedtest::ScheduleFixture {
protected:
    void open() { ScheduleFixture::open("2026-11-15T16:10:00"); }
};

TEST_F(SiteConfig, EncDecXMLTransformsTheWholeFileWithoutChangingIt) {
    const std::string plain = "<?xml version=\"1.0\"?>\r\n<config/>\r\n";
    std::string cipherText = plain, twice = plain;
    standins::cipherEncrypt(cipherText, cipherText.size());
    standins::cipherEncrypt(twice, twice.size());
    standins::cipherEncrypt(twice, twice.size());
    machine.writeFile(kConfig, cipherText);
    open();
    EXPECT_EQ(kpm::EncDecXML(false, kConfig), plain);
    EXPECT_EQ(kpm::EncDecXML(true, kConfig), twice);
    EXPECT_EQ(machine.read(kConfig), cipherText);
    EXPECT_EQ(newLog(), (std::vector<std::string>{kDecrypted, "ModComman|EncDecXML|INFO|File encrypted successfully.|||"}));
}

TEST_F(SiteConfig, EncDecXMLFailuresEndThePassThroughCloseAll) {
    struct Case {
        const char* why;
        const char* content;  // nullptr: no file
        const char* classes;  // machine.ini [Classes]
        std::string numberAndText;
        std::function<void()> caller;
    };
    const std::vector<Case> cases = {
        {"missing file", nullptr, "", "53_File not found", [] { kpm::EncDecXML(false, kConfig); }},
        {"empty file", "", "", "62_Input past end of file", [] { kpm::EncDecXML(false, kConfig); }},
        {"KEncDec not installed", "x", "KEncDec=missing", "53_File not found: KEncDec", [] { kpm::EncDecXML(false, kConfig); }},
        {"KEncDec does not load", "x", "KEncDec=badmodule", "48_Error in loading DLL", [] { kpm::EncDecXML(true, kConfig); }},
        // The end passes through the callers' own traps.
        {"from Create_Data_Log_Files", nullptr, "", "53_File not found", [] { kpm::Create_Data_Log_Files(); }},
        {"from subReadXMLWebpost", "", "", "62_Input past end of file", [] { kpm::subReadXMLWebpost("wppthdwldinfo"); }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        machine.removeFile(kConfig);
        if (c.content) machine.writeFile(kConfig, c.content);
        machine.setMachineIni(
            "[Machine]\r\nExePath=C:\\Program Files\\VORN\\VORNMobile\\BaseComponents\\PatchManagement\\KPMDwld.exe\r\n"
            "[Classes]\r\n" + std::string(c.classes) + "\r\n");
        open();
        kpm::runState.ErrorTrail = " earlier : 0 : 5";

        EXPECT_THROW(c.caller(), platform::ProcessEnd);
        EXPECT_EQ(kpm::runState.ErrorTrail, " earlier : 0 : 5 File encryption and decryption " + c.numberAndText);
        std::string error = c.numberAndText;
        error[error.find('_')] = '|';
        auto log = newLog();
        ASSERT_GE(log.size(), 2u);
        EXPECT_EQ(log[0].rfind("ModComman|EncDecXML|ERROR|" + error + "|", 0), 0u) << log[0];
        EXPECT_EQ(log.back(), "ModComman|CloseAll|INFO|Application stopped.|||");
        for (const auto& line : log) EXPECT_EQ(line.find("Creating Data Files"), std::string::npos);
        machine.close();
    }
}

TEST_F(SiteConfig, EntrySelection) {
    struct Case {
        const char* why;
        std::string plain;  // decrypted content of wpConfig.xml
        std::string key;
        std::string site;   // "primary|secondary|page|root element|encryption flag"
        std::string error;  // the ERROR entry after the decryption line: "number|description"
    };
    const std::string page = "tfr_wppthdwldinfo.asp", none = "||||", unset = "91|Object variable or With block variable not set",
                      kDwldSite = "http://127.0.0.1:18080/" + page + "|http://127.0.0.1:18081/" + page + "|" + page + "|wppthdwldinfo|0";
    auto site = [&](const std::string& primary, const std::string& secondary, const std::string& flag = "0") {
        return primary + "|" + secondary + "|" + page + "|wppthdwldinfo|" + flag;
    };
    const std::vector<Case> cases = {
        {"first host pair over http", config(kDwld), "wppthdwldinfo", kDwldSite, ""},
        {"second pair when selector is not 0", config(doc("0", "h5", "h6", "1", "h8", "h9", "1")), "wppthdwldinfo",
         site("http://h8/" + page, "http://h9/" + page, "1"), ""},
        {"scheme other than 0 is https", config(doc("1", "h5", "h6")), "wppthdwldinfo", site("https://h5/" + page, "https://h6/" + page), ""},
        {"scheme compared untrimmed", config(doc(" 0", "h5", "")), "wppthdwldinfo", site("https://h5/" + page, ""), ""},
        {"key trimmed and case-blind", config(doc("0", "h5", "", "0", "", "", "0", " WppthDwldInfo ")), "  wppthdwldinfo",
         "http://h5/tfr_ WppthDwldInfo .asp||tfr_ WppthDwldInfo .asp| WppthDwldInfo |0", ""},
        {"hosts tested trimmed, joined as they stand", config(doc("0", " h5/sub ", "  ")), "wppthdwldinfo",
         site("http:// h5/sub /" + page, ""), ""},
        {"only a secondary host", config(doc("0", "", "h6")), "wppthdwldinfo", site("", "http://h6/" + page), ""},
        {"first of two entries wins", config(doc("0", "o5", "o6", "0", "", "", "0", "other") + kDwld + doc("0", "late", "")),
         "wppthdwldinfo", kDwldSite, ""},
        {"page and root element from their positions", config(entry({"wppthmsbbllist", "aspx", "rootel", "x", "0", "h5", "", "0", "", "", "1"})),
         "wppthmsbbllist", "http://h5/tfr_wppthmsbbllist.aspx||tfr_wppthmsbbllist.aspx|rootel|1", ""},
        {"other fod elements are skipped",
         "<c><fod id=\"OTHER\"><PR4>" + doc("0", "no", "no") + "</PR4></fod><fod id=\"ndatapost\"><pr4>" + kDwld + "</pr4></fod></c>",
         "wppthdwldinfo", kDwldSite, ""},
        {"second NDATAPOST fod searched after a miss",
         "<c><fod id=\"NDATAPOST\"><PR4>" + doc("0", "no", "no", "0", "", "", "0", "other") +
             "</PR4></fod><fod id=\"NDATAPOST\"><x:Pr4 xmlns:x=\"urn:x\">" + kDwld + "</x:Pr4></fod></c>",
         "wppthdwldinfo", kDwldSite, ""},
        {"marker not trimmed", "<c><fod id=\" NDATAPOST\"><PR4>" + kDwld + "</PR4></fod></c>", "wppthdwldinfo", none, ""},
        {"no entry for the kind", config(kDwld), "wppthmsbbllist", none, ""},
        {"text that is not XML", "this is not XML", "wppthdwldinfo", none, ""},
        {"entry with ten attributes", config(entry({"wppthdwldinfo", "asp", "r", "x", "0", "h5", "h6", "0", "", ""})),
         "wppthdwldinfo", none, unset},
        {"fod without attributes", "<c><fod><PR4>" + kDwld + "</PR4></fod></c>", "wppthdwldinfo", none, unset},
        {"comment under PR4", config("<!-- entries -->" + kDwld), "wppthdwldinfo", none, unset},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        machine.writeWebPostConfig(c.plain);
        open();
        webPostSite.PrimaryWebPostUrl = webPostSite.SecondaryWebPostUrl = "stale";
        webPostSite.PostPageName = webPostSite.PostRootElement = webPostSite.PostEncryptFlag = "stale";

        kpm::subReadXMLWebpost(c.key);
        const kpm::WebPostSite& w = webPostSite;
        EXPECT_EQ(w.PrimaryWebPostUrl + "|" + w.SecondaryWebPostUrl + "|" + w.PostPageName + "|" + w.PostRootElement + "|" +
                      w.PostEncryptFlag, c.site);
        EXPECT_EQ(w.WebPostConfigPath, kConfig);
        EXPECT_EQ(w.WebPostConfigText, c.plain);

        auto log = newLog();
        ASSERT_EQ(log.size(), c.error.empty() ? 1u : 2u);
        EXPECT_EQ(log[0], kDecrypted);
        // "module|proc|ERROR|number|description|last system error|"
        if (!c.error.empty()) {
            EXPECT_EQ(log[1].rfind("ModXML|subReadXMLWebpost|ERROR|" + c.error + "|", 0), 0u) << log[1];
        }
        machine.close();
    }
}

TEST_F(SiteConfig, ReadsTheFileAgainOnEveryCall) {
    machine.writeWebPostConfig(config(kDwld));
    open();
    kpm::subReadXMLWebpost("wppthdwldinfo");
    EXPECT_EQ(webPostSite.PrimaryWebPostUrl, "http://127.0.0.1:18080/tfr_wppthdwldinfo.asp");
    machine.writeWebPostConfig(config(doc("1", "new", "")));
    kpm::subReadXMLWebpost("wppthdwldinfo");
    EXPECT_EQ(webPostSite.PrimaryWebPostUrl, "https://new/tfr_wppthdwldinfo.asp");
    EXPECT_EQ(newLog(), (std::vector<std::string>{kDecrypted, kDecrypted}));
}

TEST_F(SiteConfig, CreateDataLogFilesMakesTheFoldersAndDecrypts) {
    const std::string plain = config(kDwld);
    machine.writeWebPostConfig(plain);
    open();
    kpm::Create_Data_Log_Files();
    for (const char* f : {"NDatapost", "BaseComponents\\PatchManagement\\ScanFld", "BaseComponents\\PatchManagement\\Components"})
        EXPECT_TRUE(machine.exists(std::string(kpmtest::kInstallPath) + f)) << f;
    EXPECT_EQ(webPostSite.WebPostConfigPath, kConfig);
    EXPECT_EQ(webPostSite.WebPostConfigText, plain);
    kpm::Create_Data_Log_Files();  // existing folders are left alone
    EXPECT_EQ(newLog(), (std::vector<std::string>{kDecrypted, kDecrypted}));
}

TEST_F(SiteConfig, CreateDataLogFilesLogsAMissingParentAndGoesOn) {
    machine.makeFolder("C:\\Other");
    open();
    // An install folder without "BaseComponents\PatchManagement": one level at a time fails.
    kpm::agentSettings.InstallPath = "C:\\Other\\";
    kpm::Create_Data_Log_Files();
    EXPECT_TRUE(machine.exists("C:\\Other\\NDatapost"));
    EXPECT_FALSE(machine.exists("C:\\Other\\BaseComponents"));
    EXPECT_EQ(webPostSite.WebPostConfigPath, "");  // stopped before the configuration
    auto log = newLog();
    ASSERT_EQ(log.size(), 1u);
    EXPECT_EQ(log[0].rfind("ModMain|Create_Data_Log_Files|ERROR|Creating Data Files|76|Path not found|", 0), 0u) << log[0];
}

}  // namespace

// "wpConfig.xml": the data folders, the decryption and the entry for a document kind.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "config/agent_settings.h"
#include "driver/run_state.h"
#include "log/w3c_log.h"
#include "platform/errors.h"
#include "platform/host.h"
#include "standins/cipher.h"
#include "../schedule/schedule_fixture.h"
#include "support/test_machine.h"
#include "webpost/site_config.h"

using kpm::webPostSite;

namespace {

const std::string kConfig = std::string(kpmtest::kInstallPath) + "Configuration\\wpConfig.xml";
const std::string kDecrypted = "ModComman|EncDecXML|INFO|File decrypted successfully.|||";

std::string encrypted(std::string text) {
    standins::cipherEncrypt(text, text.size());
    return text;
}

// An entry: eleven attributes by position (names are free).
std::string entry(const std::vector<std::string>& a) {
    std::string out = "<e";
    for (size_t i = 0; i < a.size(); ++i) out += " a" + std::to_string(i) + "=\"" + a[i] + "\"";
    return out + "/>";
}

std::vector<std::string> attrs(const std::string& key, const std::string& scheme, const std::string& p1,
                               const std::string& s1, const std::string& pair, const std::string& p2,
                               const std::string& s2, const std::string& flag = "0") {
    return {key, "asp", key, "x", scheme, p1, s1, pair, p2, s2, flag};
}

std::string config(const std::string& pr4Children, const std::string& before = "") {
    return "<?xml version=\"1.0\"?>\r\n<config>\r\n" + before +
           "  <fod id=\"NDATAPOST\" v=\"1\">\r\n    <PR4>\r\n      " + pr4Children +
           "\r\n    </PR4>\r\n  </fod>\r\n</config>\r\n";
}

const std::string kDwld = entry(attrs("wppthdwldinfo", "0", "127.0.0.1:18080", "127.0.0.1:18081", "0", "h8", "h9"));

class SiteConfig : public ::testing::Test {
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

TEST_F(SiteConfig, EntrySelection) {
    struct Case {
        const char* why;
        std::string plain;  // decrypted content of wpConfig.xml
        std::string key;
        std::string primary, secondary, page, root, flag;
        std::vector<std::string> errors;  // ERROR entries after the decryption line
    };
    const std::string page = "tfr_wppthdwldinfo.asp";
    const std::vector<Case> cases = {
        {"first host pair over http", config(kDwld), "wppthdwldinfo", "http://127.0.0.1:18080/" + page,
         "http://127.0.0.1:18081/" + page, page, "wppthdwldinfo", "0", {}},
        {"second pair when selector is not 0",
         config(entry(attrs("wppthdwldinfo", "0", "h5", "h6", "1", "h8", "h9", "1"))), "wppthdwldinfo",
         "http://h8/" + page, "http://h9/" + page, page, "wppthdwldinfo", "1", {}},
        {"scheme other than 0 is https", config(entry(attrs("wppthdwldinfo", "1", "h5", "h6", "0", "", ""))),
         "wppthdwldinfo", "https://h5/" + page, "https://h6/" + page, page, "wppthdwldinfo", "0", {}},
        {"scheme blank-0 is https", config(entry(attrs("wppthdwldinfo", " 0", "h5", "h6", "0", "", ""))),
         "wppthdwldinfo", "https://h5/" + page, "https://h6/" + page, page, "wppthdwldinfo", "0", {}},
        {"key trimmed and case-blind", config(entry(attrs(" WppthDwldInfo ", "0", "h5", "h6", "0", "", ""))),
         "  wppthdwldinfo", "http://h5/tfr_ WppthDwldInfo .asp", "http://h6/tfr_ WppthDwldInfo .asp",
         "tfr_ WppthDwldInfo .asp", " WppthDwldInfo ", "0", {}},
        {"hosts tested trimmed, joined as they stand",
         config(entry(attrs("wppthdwldinfo", "0", " h5/sub ", "  ", "0", "", ""))), "wppthdwldinfo",
         "http:// h5/sub /" + page, "", page, "wppthdwldinfo", "0", {}},
        {"only a secondary host", config(entry(attrs("wppthdwldinfo", "0", "", "h6", "0", "", ""))),
         "wppthdwldinfo", "", "http://h6/" + page, page, "wppthdwldinfo", "0", {}},
        {"first of two entries wins",
         config(entry(attrs("other", "0", "o5", "o6", "0", "", "")) + kDwld +
                entry(attrs("wppthdwldinfo", "0", "late5", "late6", "0", "", ""))),
         "wppthdwldinfo", "http://127.0.0.1:18080/" + page, "http://127.0.0.1:18081/" + page, page,
         "wppthdwldinfo", "0", {}},
        {"page and root element from their positions",
         config(entry({"wppthmsbbllist", "aspx", "rootel", "x", "0", "h5", "", "0", "", "", "1"})),
         "wppthmsbbllist", "http://h5/tfr_wppthmsbbllist.aspx", "", "tfr_wppthmsbbllist.aspx", "rootel", "1", {}},
        {"other fod elements are skipped",
         "<c><fod id=\"OTHER\"><PR4>" + entry(attrs("wppthdwldinfo", "0", "no", "no", "0", "", "")) +
             "</PR4></fod><fod id=\"ndatapost\"><pr4>" + kDwld + "</pr4></fod></c>",
         "wppthdwldinfo", "http://127.0.0.1:18080/" + page, "http://127.0.0.1:18081/" + page, page,
         "wppthdwldinfo", "0", {}},
        {"second NDATAPOST fod searched after a miss",
         "<c><fod id=\"NDATAPOST\"><PR4>" + entry(attrs("other", "0", "no", "no", "0", "", "")) +
             "</PR4></fod><fod id=\"NDATAPOST\"><x:Pr4 xmlns:x=\"urn:x\">" + kDwld + "</x:Pr4></fod></c>",
         "wppthdwldinfo", "http://127.0.0.1:18080/" + page, "http://127.0.0.1:18081/" + page, page,
         "wppthdwldinfo", "0", {}},
        {"marker not trimmed", "<c><fod id=\" NDATAPOST\"><PR4>" + kDwld + "</PR4></fod></c>", "wppthdwldinfo",
         "", "", "", "", "", {}},
        {"no entry for the kind", config(kDwld), "wppthmsbbllist", "", "", "", "", "", {}},
        {"text that is not XML", "this is not XML", "wppthdwldinfo", "", "", "", "", "", {}},
        {"entry with ten attributes",
         config(entry({"wppthdwldinfo", "asp", "r", "x", "0", "h5", "h6", "0", "", ""})), "wppthdwldinfo", "", "",
         "", "", "", {"91|Object variable or With block variable not set"}},
        {"fod without attributes", "<c><fod><PR4>" + kDwld + "</PR4></fod></c>", "wppthdwldinfo", "", "", "", "",
         "", {"91|Object variable or With block variable not set"}},
        {"comment under PR4", config("<!-- entries -->" + kDwld), "wppthdwldinfo", "", "", "", "", "",
         {"91|Object variable or With block variable not set"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        machine.writeFile(kConfig, encrypted(c.plain));
        open();
        webPostSite.PrimaryWebPostUrl = webPostSite.SecondaryWebPostUrl = "stale";
        webPostSite.PostPageName = webPostSite.PostRootElement = webPostSite.PostEncryptFlag = "stale";

        kpm::subReadXMLWebpost(c.key);
        EXPECT_EQ(webPostSite.PrimaryWebPostUrl, c.primary);
        EXPECT_EQ(webPostSite.SecondaryWebPostUrl, c.secondary);
        EXPECT_EQ(webPostSite.PostPageName, c.page);
        EXPECT_EQ(webPostSite.PostRootElement, c.root);
        EXPECT_EQ(webPostSite.PostEncryptFlag, c.flag);
        EXPECT_EQ(webPostSite.WebPostConfigPath, kConfig);
        EXPECT_EQ(webPostSite.WebPostConfigText, c.plain);

        auto log = newLog();
        ASSERT_EQ(log.size(), 1 + c.errors.size());
        EXPECT_EQ(log[0], kDecrypted);
        for (size_t i = 0; i < c.errors.size(); ++i) {
            // "module|proc|ERROR|number|description|last system error|"
            EXPECT_EQ(log[1 + i].rfind("ModXML|subReadXMLWebpost|ERROR|" + c.errors[i] + "|", 0), 0u) << log[1 + i];
        }
        machine.close();
    }
}

TEST_F(SiteConfig, AFileThatWasNeverEncryptedDecryptsToNothingUsable) {
    machine.writeFile(kConfig, config(kDwld));  // plain text where cipher text belongs
    open();
    kpm::subReadXMLWebpost("wppthdwldinfo");
    EXPECT_NE(webPostSite.WebPostConfigText, config(kDwld));
    EXPECT_EQ(webPostSite.PrimaryWebPostUrl, "");
    EXPECT_EQ(webPostSite.SecondaryWebPostUrl, "");
    EXPECT_EQ(webPostSite.PostPageName, "");
    EXPECT_EQ(newLog(), std::vector<std::string>{kDecrypted});
}

TEST_F(SiteConfig, ReadsTheFileAgainOnEveryCall) {
    machine.writeFile(kConfig, encrypted(config(kDwld)));
    open();
    kpm::subReadXMLWebpost("wppthdwldinfo");
    EXPECT_EQ(webPostSite.PrimaryWebPostUrl, "http://127.0.0.1:18080/tfr_wppthdwldinfo.asp");
    machine.writeFile(kConfig, encrypted(config(entry(attrs("wppthdwldinfo", "1", "new", "", "0", "", "")))));
    kpm::subReadXMLWebpost("wppthdwldinfo");
    EXPECT_EQ(webPostSite.PrimaryWebPostUrl, "https://new/tfr_wppthdwldinfo.asp");
    EXPECT_EQ(webPostSite.SecondaryWebPostUrl, "");
    EXPECT_EQ(newLog(), (std::vector<std::string>{kDecrypted, kDecrypted}));
}

TEST_F(SiteConfig, CreateDataLogFilesMakesTheFoldersAndDecrypts) {
    const std::string plain = config(kDwld);
    machine.writeFile(kConfig, encrypted(plain));
    open();
    kpm::Create_Data_Log_Files();
    for (const char* f : {"NDatapost", "BaseComponents\\PatchManagement\\ScanFld",
                          "BaseComponents\\PatchManagement\\Components"})
        EXPECT_TRUE(machine.exists(std::string(kpmtest::kInstallPath) + f)) << f;
    EXPECT_EQ(webPostSite.WebPostConfigPath, kConfig);
    EXPECT_EQ(webPostSite.WebPostConfigText, plain);
    EXPECT_EQ(newLog(), std::vector<std::string>{kDecrypted});

    // Existing folders are left alone.
    kpm::Create_Data_Log_Files();
    EXPECT_EQ(newLog(), (std::vector<std::string>{kDecrypted, kDecrypted}));
}

TEST_F(SiteConfig, CreateDataLogFilesLogsAMissingParentAndGoesOn) {
    machine.writeFile(kConfig, encrypted(config(kDwld)));
    machine.makeFolder("C:\\Other");
    open();
    // An install folder without "BaseComponents\PatchManagement": one level at a time fails.
    kpm::agentSettings.InstallPath = "C:\\Other\\";
    kpm::Create_Data_Log_Files();
    EXPECT_TRUE(machine.exists("C:\\Other\\NDatapost"));
    EXPECT_FALSE(machine.exists("C:\\Other\\BaseComponents"));
    EXPECT_EQ(webPostSite.WebPostConfigPath, "");  // stopped before the configuration
    EXPECT_EQ(webPostSite.WebPostConfigText, "");
    auto log = newLog();
    ASSERT_EQ(log.size(), 1u);
    EXPECT_EQ(log[0].rfind("ModMain|Create_Data_Log_Files|ERROR|Creating Data Files|76|Path not found|", 0), 0u)
        << log[0];
}

}  // namespace

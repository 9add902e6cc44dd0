// The third-party branch: the product list archive fetched through the
// gateway or from the data center, its two lists put in place, and the
// hand-over to the product assessment.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "config/agent_settings.h"
#include "downloads/downloads_fixture.h"
#include "log/w3c_log.h"
#include "thirdparty/product_list.h"

using kpmtest::DownloadMachine;

namespace {

const std::string kTemp = std::string(kpmtest::kProgramFolder) + "\\Temp";
const std::string kShortTemp = std::string(kpmtest::kShortProgramFolder) + "\\Temp";
const std::string kPdList = "/updates/wblist/pdlist.zip";

// Today's third-party schedule: 16:00 to 17:00 every day, for these vendors.
std::string tpSchedule(const std::string& vendors) {
    const char* values[] = {"1", "", "0", "1,2,3,4,5,6,7", "16:00", "17:00"};
    std::string xml = "<thirdpartypatch><autothirdpatchdeploy>";
    for (int i = 0; i < 21; ++i)
        xml += "<c" + std::to_string(i) + ">" + (i < 6 ? values[i] : i == 19 ? vendors : "") + "</c" +
               std::to_string(i) + ">";
    return xml + "</autothirdpatchdeploy></thirdpartypatch>";
}

// A third-party day: the schedule for 15 November 2026, the download library in place.
void thirdPartyDay(DownloadMachine& m, const std::string& vendors) {
    m.writeFile(std::string(kpmtest::kProgramFolder) + "\\Autosch_15112026.xml", tpSchedule(vendors));
    m.writeFile(std::string(kpmtest::kPatchFolder) + "KDowFile.dll", "MZ");
}

// The third-party modules' entries and those of the download they make.
std::vector<std::string> thirdPartyEntries(const DownloadMachine& m) {
    std::vector<std::string> out;
    bool thirdParty = false;
    for (const auto& e : m.logMessages()) {
        if (e.rfind("ModTPM", 0) == 0 || e.rfind("modTPMDwn", 0) == 0) thirdParty = true;
        if (thirdParty && (e.rfind("ModTPM", 0) == 0 || e.rfind("modTPMDwn", 0) == 0 ||
                           e.rfind("ModComman|fncDownloadFile|", 0) == 0))
            out.push_back(e);
    }
    return out;
}

}  // namespace

TEST(ProductList, WholePasses) {
    const std::string gw = "http://gateway.corp.lan:8080/pm/pdlist.zip";
    const std::string dc = "http://dc.vornsoft.com/updates/wblist/pdlist.zip";
    const std::string viaGateway = "modTPMDwn|fncDownloadTPMFile|INFO|Downloading file through GateWay|" + gw + "||";
    const std::string gatewayFailed =
        "modTPMDwn|fncDownloadTPMFile|ERROR|Download Failed through GateWay|" + gw + "|Failed|";
    const std::string fromUrl = "modTPMDwn|fncDownloadTPMFile|INFO|Downloading file from URL|" + dc + "||";
    const std::string copied =
        "modTPMDwn|fncDownloadTPMFile|INFO|Download Complete..File copied|" + kShortTemp + "\\pdlist.zip||";
    const std::string start = "ModTPM|ScanTpmUpdates|INFO|Downloading PDList/AUOptions XML|||";
    // The message starts with CR LF, so the entry's line ends there and the text follows on the next line.
    const std::string done = "ModTPM|ScanTpmUpdates|INFO|";
    struct Case {
        const char* name;
        std::function<void(DownloadMachine&)> setup;
        std::string vendors;
        std::vector<std::string> entries;  // the third-party modules' entries
        bool stoppedEarly;
    };
    auto lists = [](DownloadMachine& m) {
        m.serveZip("dc", kPdList, {{"PDList.xml", "<products/>"}, {"AUOptions.xml", "<options/>"}});
    };
    const Case cases[] = {
        {"from the data center after the gateway", lists, "Adobe,Mozilla",
         {start, viaGateway, gatewayFailed, fromUrl, copied, done,
          "ModTPMAssess|subAutoDeployment|INFO|Product assessment not available in this build: stopping before "
          "it|Adobe,Mozilla||"},
         false},
        {"through the gateway, no vendors",
         [](DownloadMachine& m) {
             m.serveZip("gateway", "/pm/pdlist.zip", {{"PDList.xml", "<products/>"}, {"AUOptions.xml", "<o/>"}});
         },
         "",
         {start, viaGateway,
          "modTPMDwn|fncDownloadTPMFile|INFO|Download Complete..File copied|" + kShortTemp + "\\pdlist.zip||", done,
          "ModTPMAssess|subAutoDeployment|INFO|Vendors to be Deployed Information not supplied.|||"},
         false},
        {"an INI without DownLoadSite",
         [](DownloadMachine& m) { m.writeFile(std::string(kpmtest::kInstallPath) + "VORNMobile.ini", "[Download]\r\n"); },
         "Adobe",
         {start, "modTPMDwn|fncDownloadTPMFile|INFO|Downloading file from URL|0/wblist/pdlist.zip||",
          "ModComman|fncDownloadFile|ERROR|Downloading file from 0/wblist/pdlist.zip|0|not an http URL: "
          "0/wblist/pdlist.zip|0/wblist/pdlist.zip",
          "ModTPM|subXMLDownload|ERROR|PDList.zip Download Failed.|Unable to download pdlist.zip|0/wblist/pdlist.zip|"},
         true},
        {"a corrupt archive",
         [](DownloadMachine& m) { m.serve("dc", kPdList, "PK\x03\x04 not really"); },
         "Adobe",
         {start, viaGateway, gatewayFailed, fromUrl, copied,
          "modTPMDwn|fncDownloadTPMFile|ERROR|Archive could not be unpacked|" + kShortTemp + "\\pdlist.zip|",
          "ModTPM|subXMLDownload|ERROR|PDList.zip Download Failed.|Archive could not be unpacked|"},
         true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        DownloadMachine m(false);
        thirdPartyDay(m, c.vendors);
        c.setup(m);
        ASSERT_EQ(m.runPass(), 0);
        auto entries = thirdPartyEntries(m);
        // The unzip's reason is the zip reader's; only its start is ours.
        for (auto& e : entries)
            if (e.find("Archive could not be unpacked|") != std::string::npos)
                e = e.substr(0, e.find("unpacked|") + 9) + (e.find(".zip|") != std::string::npos ? kShortTemp + "\\pdlist.zip|" : "");
        EXPECT_EQ(entries, c.entries);
        auto msgs = m.logMessages();
        EXPECT_EQ(msgs.back(), "ModComman|CloseAll|INFO|Application stopped.|||");
        EXPECT_FALSE(m.exists(kTemp));
        EXPECT_NE(m.read(std::string(kpmtest::kProgramFolder) + "\\SchPatch.ini").find("[TPDowSchTime]"),
                  std::string::npos);
        if (!c.stoppedEarly) {
            EXPECT_NE(m.read(std::string(kpmtest::kPatchFolder) + "DwldURL.txt").find("pdlist.zip\r\n"),
                      std::string::npos);
            EXPECT_NE(m.read(kpmtest::kLogPath).find("\tINFO\t\r\nCompleted downloading PDList/AUOptions XML\t\t\t\r\n"),
                      std::string::npos);
        }
    }
}

TEST(ProductList, ListsPutInPlace) {
    struct Case {
        const char* name;
        std::vector<std::pair<std::string, std::string>> archive;
        std::string auOptions;  // Temp\AUOptions.xml afterwards
    };
    const Case cases[] = {
        {"both lists", {{"PDList.xml", "<products v='2'/>"}, {"AUOptions.xml", "<options v='2'/>"}}, "<options v='2'/>"},
        {"no AUOptions.xml keeps the old one", {{"PDList.xml", "<products v='2'/>"}}, "<options v='1'/>"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        DownloadMachine m(false);
        m.writeFile(kTemp + "\\AUOptions.xml", "<options v='1'/>");
        m.writeFile(kTemp + "\\PDList.xml", "<products v='1'/>");
        m.serveZip("dc", kPdList, c.archive);
        m.open(kpmtest::at("2026-11-15T16:10:00"));
        kpm::OpenW3CLog();
        kpm::InitializeEXE();
        kpm::subXMLDownload();
        m.close();
        EXPECT_EQ(m.read(kTemp + "\\PDList.xml"), "<products v='2'/>");
        EXPECT_EQ(m.read(kTemp + "\\AUOptions.xml"), c.auOptions);
        EXPECT_FALSE(m.exists(kTemp + "\\ZipComp"));
        EXPECT_TRUE(m.exists(kTemp + "\\pdlist.zip"));
        EXPECT_EQ(kpm::ProductListPath, kShortTemp + "\\pdlist.zip");
    }
}

TEST(ProductList, FileDownloadRefusesWhatItCannotTrust) {
    DownloadMachine m(false);
    m.writeFile(std::string(kpmtest::kPatchFolder) + "KGnMD5.dll", "MZ");
    m.serve("dc", "/apps/setup.exe", "installer");
    m.serveZip("dc", "/apps/evil.zip", {{"a.txt", "a"}});
    const std::string zipHost = (m.root() / "sites" / "dc" / "apps" / "evil.zip").string();
    ASSERT_EQ(std::system(("python3 -c \"import zipfile,sys; z=zipfile.ZipFile(sys.argv[1],'a'); "
                           "z.writestr('..\\\\..\\\\KPMDwld.exe','evil'); z.close()\" '" + zipHost + "'").c_str()),
              0);
    m.writeAgentIni("PMDownload=\r\n");
    m.open(kpmtest::at("2026-11-15T16:10:00"));
    kpm::OpenW3CLog();
    kpm::InitializeEXE();
    // The right checksum (any case) keeps the file; a wrong one deletes it.
    auto good = kpm::fncDownloadTPMFile("http://dc.vornsoft.com/apps/setup.exe", kTemp,
                                        "97384261B8BBF966DF16E5AD509922DB");  // md5sum of "installer"
    EXPECT_TRUE(good.Success);
    EXPECT_EQ(good.FilePath, kTemp + "\\setup.exe");
    EXPECT_TRUE(platform::files().fileExists(kTemp + "\\setup.exe"));
    auto bad = kpm::fncDownloadTPMFile("http://dc.vornsoft.com/apps/setup.exe", kTemp,
                                       "97384261B8BBF966DF16E5AD509922DC");
    EXPECT_FALSE(bad.Success);
    EXPECT_EQ(bad.ErrorText1, "Checksum does not match");
    EXPECT_FALSE(platform::files().fileExists(kTemp + "\\setup.exe"));
    auto evil = kpm::fncDownloadTPMFile("http://dc.vornsoft.com/apps/evil.zip", kTemp);
    EXPECT_FALSE(evil.Success);
    EXPECT_FALSE(evil.Extracted);
    EXPECT_FALSE(platform::files().fileExists(kTemp + "\\ZipComp\\a.txt"));
    auto named = kpm::fncDownloadTPMFile("http://dc.vornsoft.com/apps/..\\setup.exe", kTemp);
    EXPECT_FALSE(named.Success);
    m.close();
    EXPECT_EQ(m.read(std::string(kpmtest::kProgramFolder) + "\\KPMDwld.exe"), "") << "nothing escaped Temp";
}

TEST(ProductList, FileNamesFromUrls) {
    const std::pair<const char*, const char*> cases[] = {
        {"http://dl.example.com/app/setup.exe", "setup.exe"},
        {"http://dl.example.com/app.v2/setup", ""},
        {"C:\\dl\\setup.msi", "setup.msi"},
        {"C:\\dl\\sub/setup.msi", "sub/setup.msi"},
        {"setup.exe", "setup.exe"},
        {"", ""},
    };
    for (const auto& [url, name] : cases) EXPECT_EQ(kpm::GetFileNameFromURL(url), name) << url;
}

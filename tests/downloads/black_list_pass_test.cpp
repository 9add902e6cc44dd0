// Whole passes through the black-list step: the gateway, the data center's
// archive and its second attempt, and what is left on disk afterwards.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "downloads/downloads_fixture.h"

using kpmtest::DownloadMachine;

namespace {

const std::string kShort = kpmtest::kShortProgramFolder;
const std::string kTempList = kShort + "\\Temp\\PatchBlackList.txt";

const std::string kDcFailed =
    "DCDownload|ERROR|Could Not Be Downloaded from the DataCenter |http://dc.vornsoft.com/updates/wblist|wblist.zip|";

// Download_BlackList's first entries for `url`, then `tail`.
std::vector<std::string> gateway(const std::string& url, std::vector<std::string> tail) {
    std::vector<std::string> e = {"Download_BlackList|INFO|Downloading From GateWay.|||",
                                  "Download_BlackList|INFO|URL|" + url + "||",
                                  "Download_BlackList|INFO|File name|PatchBlackList.txt||"};
    e.insert(e.end(), tail.begin(), tail.end());
    return e;
}
// Three failed attempts at `url`.
std::vector<std::string> gatewayFails(const std::string& url = kpmtest::kGatewayBlackList) {
    return gateway(url, {"Download_BlackList|INFO|Attempt|1||", "Download_BlackList|INFO|Attempt|2||",
                         "Download_BlackList|INFO|Attempt|3||",
                         "Download_BlackList|ERROR|Download Failed 3 times , Aborting download now|||"});
}
// The data center's first try failed; the second, from its own procedure, makes one attempt, then `tail`.
std::vector<std::string> secondTry(const std::vector<std::string>& tail) {
    std::vector<std::string> e = {kDcFailed, "DCDownload|INFO|Attempt 2nd Downloading again|||",
                                  "Download_BlackList_FromDC|INFO|Downloading Black List From DC|||",
                                  "Download_BlackList_FromDC|INFO|URL|" + std::string(kpmtest::kDataCenterZip) + "||",
                                  "Download_BlackList_FromDC|INFO|File name|wblist.zip||",
                                  "Download_BlackList_FromDC|INFO|Attempt: |1||"};
    e.insert(e.end(), tail.begin(), tail.end());
    return e;
}

}  // namespace

TEST(BlackListPass, SourcesInTurn) {
    struct Case {
        const char* name;
        std::function<void(DownloadMachine&)> setup;
        std::vector<std::string> blackList;   // Download_BlackList's entries
        std::vector<std::string> dataCenter;  // DCDownload's and Download_BlackList_FromDC's
        std::vector<std::string> requests;
        bool unableLogged;                    // "Unable to download Black List file"
        bool archiveInProgramFolder;
    };
    const std::string zipPath = "/updates/wblist/wblist.zip";
    const std::vector<std::string> gateway404(3, "gateway GET /wblist/PatchBlackList.txt 404");
    auto then = [](std::vector<std::string> a, const std::vector<std::string>& b) {
        a.insert(a.end(), b.begin(), b.end());
        return a;
    };
    auto zip = [&](DownloadMachine& m) { m.serveZip("dc", zipPath, {{"PatchBlackList.txt", "KB5031354\r\n"}}); };
    const Case cases[] = {
        {"the gateway has it",
         [](DownloadMachine& m) { m.serve("gateway", "/wblist/PatchBlackList.txt", "KB1\r\nKB2\r\n"); },
         gateway(kpmtest::kGatewayBlackList, {"Download_BlackList|INFO|Attempt|1||",
                                              "Download_BlackList|INFO|Download Complete..File copied to|" + kTempList + "||"}),
         {},
         {"gateway GET /wblist/PatchBlackList.txt 200"},
         false,
         false},
        {"the gateway answers 404: the data center's archive",
         zip,
         gatewayFails(),
         {"DCDownload|INFO|Downloaded Successfully from the DataCenter|||"},
         then(gateway404, {"dc GET /updates/wblist/wblist.zip 200"}),
         false,
         false},
        {"the archive's second attempt lands beside the program, not in Temp",
         [&](DownloadMachine& m) {
             zip(m);
             m.sites().setFault("dc", zipPath, sites::Fault::withStatus(500, 1));
         },
         gatewayFails(),
         secondTry({"Download_BlackList_FromDC|INFO|Download Complete..File copied to|" + kShort + "\\wblist.zip||",
                       "DCDownload|INFO|Downloaded Successfully from the DataCenter|||"}),
         then(gateway404, {"dc GET /updates/wblist/wblist.zip 500", "dc GET /updates/wblist/wblist.zip 200"}),
         true,
         true},
    };
    // Archives the unzip refuses: the pass goes on without a black list.
    struct Bad {
        const char* name;
        std::function<void(DownloadMachine&)> setup;
        std::string why;
    };
    const Bad bad[] = {
        {"a truncated archive",
         [&](DownloadMachine& m) {
             m.serveZip("dc", zipPath, {{"PatchBlackList.txt", std::string(3000, 'K')}});
             auto p = m.root() / "sites" / "dc" / "updates" / "wblist" / "wblist.zip";
             std::filesystem::resize_file(p, std::filesystem::file_size(p) / 2);
         },
         "not a zip archive"},
        {"an entry that would leave the folder",
         [&](DownloadMachine& m) {
             m.serveZip("dc", zipPath, {{"PatchBlackList.txt", "KB1"}});
             auto p = (m.root() / "sites" / "dc" / "updates" / "wblist" / "wblist.zip").string();
             std::string cmd = "python3 -c \"import zipfile,sys; z=zipfile.ZipFile(sys.argv[1],'a'); "
                               "z.writestr('../../KPMDwld.exe','evil'); z.close()\" '" + p + "'";
             ASSERT_EQ(std::system(cmd.c_str()), 0);
         },
         "../../KPMDwld.exe"},
    };
    for (const Bad& b : bad) {
        SCOPED_TRACE(b.name);
        DownloadMachine m;
        b.setup(m);
        ASSERT_EQ(m.runPass(), 0);
        auto unzip = m.entriesOf("subUnzipFile");
        ASSERT_EQ(unzip.size(), 1u);
        EXPECT_EQ(unzip[0].rfind("subUnzipFile|ERROR|Archive could not be unpacked|" + kShort + "\\Temp\\wblist.zip|", 0), 0u)
            << unzip[0];
        EXPECT_NE(unzip[0].find(b.why), std::string::npos) << unzip[0];
        auto msgs = m.logMessages();
        EXPECT_EQ(std::count(msgs.begin(), msgs.end(), "ModMain|Main|INFO|Unable to download Black List file|||"), 1);
        EXPECT_EQ(m.read(std::string(kpmtest::kProgramFolder) + "\\KPMDwld.exe"), "");
        EXPECT_FALSE(m.exists(std::string(kpmtest::kInstallPath) + "BaseComponents\\KPMDwld.exe"));
    }

    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        DownloadMachine m;
        c.setup(m);
        ASSERT_EQ(m.runPass(), 0);
        EXPECT_EQ(m.entriesOf("Download_BlackList"), c.blackList);
        auto dc = m.entriesOf("DCDownload");
        auto second = m.entriesOf("Download_BlackList_FromDC");
        std::vector<std::string> both;
        for (const auto& e : m.logMessages())
            if (e.find("|DCDownload|") != std::string::npos || e.find("|Download_BlackList_FromDC|") != std::string::npos)
                both.push_back(e.substr(e.find('|') + 1));
        EXPECT_EQ(both, c.dataCenter);
        std::vector<std::string> seen;
        for (auto r : m.requestLines()) {
            if (r.find("/wblist") == std::string::npos) continue;
            seen.push_back(r.substr(0, r.rfind(' ')));  // sizes: checked below where they are ours
        }
        EXPECT_EQ(seen, c.requests);
        for (const auto& r : m.sites().requests())
            if (r.status == 200 && r.path == "/wblist/PatchBlackList.txt") {
                EXPECT_EQ(r.bytes, 10u);
            }
        auto msgs = m.logMessages();
        EXPECT_EQ(std::count(msgs.begin(), msgs.end(), "ModMain|Main|INFO|Unable to download Black List file|||"),
                  c.unableLogged ? 1 : 0);
        EXPECT_EQ(m.exists(std::string(kpmtest::kProgramFolder) + "\\wblist.zip"), c.archiveInProgramFolder);
        EXPECT_FALSE(m.exists(std::string(kpmtest::kProgramFolder) + "\\Temp")) << "Temp is removed at the end";
        EXPECT_EQ(msgs.back(), "ModComman|CloseAll|INFO|Application stopped.|||");
    }
}

TEST(BlackListPass, AnUnconfiguredGatewayStillMakesThreeAttempts) {
    // The blank test comes after the "/" was added, so it never holds: the
    // address is "/" + the file name, and every attempt fails.
    DownloadMachine m;
    m.writeAgentIni("PMDownload=http://gateway.corp.lan:8080/pm\r\n");
    m.sites().setFault("dc", "*", sites::Fault::refuse());
    ASSERT_EQ(m.runPass(), 0);
    EXPECT_EQ(m.entriesOf("Download_BlackList"), gatewayFails("/PatchBlackList.txt"));
    auto attempts = m.entriesOf("fncDownloadFile");
    ASSERT_GE(attempts.size(), 3u);
    EXPECT_EQ(attempts[0], "fncDownloadFile|ERROR|Downloading file from /PatchBlackList.txt|0|not an http URL: "
                           "/PatchBlackList.txt|/PatchBlackList.txt");
    auto msgs = m.logMessages();
    EXPECT_EQ(std::count(msgs.begin(), msgs.end(), "ModMain|Main|INFO|Unable to download Black List file|||"), 1);
}

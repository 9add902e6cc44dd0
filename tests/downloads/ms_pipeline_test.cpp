// Whole passes through the Microsoft pipeline: the scan (online, offline from
// the gateway's catalogue, or neither), the selection with its lists, and each
// content file through the channels. Checked on the pipeline's log entries,
// the files left, "DwldURL.txt", "DownloadStatus.ini", the update agent's
// records and the sites' requests.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <functional>
#include <sstream>

#include "downloads/downloads_fixture.h"

using kpmtest::DownloadMachine;

namespace {

const std::string kMicrosoftUpdate = "7971f918-a847-4430-9279-4a52d1efe18d";
const std::string kMsDir = "/d/msdownload/update/software/secu/2026/10/";
const std::string kComponents = kpmtest::kComponents;
const std::string kProgram = kpmtest::kProgramFolder;

// One update of a catalogue (Windows 7); `inner` holds its contents and bundled updates.
std::string update(const std::string& id, const std::string& kb, const std::string& deployed,
                   const std::string& inner, const std::string& classification = "Security Updates",
                   const char* installed = "0") {
    return "<update id=\"" + id + "\" revision=\"201\" installed=\"" + installed + "\" deployed=\"" + deployed +
           "\" title=\"KB" + kb + "\"><kb>" + kb + "</kb><category type=\"UpdateClassification\" name=\"" +
           classification + "\"/><category type=\"Product\" name=\"Windows 7\"/>" + inner + "</update>";
}
std::string msUrl(const std::string& name) { return "http://download.windowsupdate.com" + kMsDir + name; }
std::string content(const std::string& name) { return "<content url=\"" + msUrl(name) + "\"/>"; }
// A bundled update: no categories of its own.
std::string bundled(const std::string& id, const std::string& inner) {
    return "<update id=\"" + id + "\" deployed=\"2026-10-20\">" + inner + "</update>";
}

// a1: a plain update with an express ".psf" that is never fetched; b2:
// installed; c3: another classification; d4: a bundle two levels deep.
const std::string kCatalog =
    "<updates>" +
    update("a1", "5031354", "2026-10-14", content("windows6.1-kb5031354-x64.msu") + content("kb5031354-express.PSF")) +
    update("b2", "5031355", "2026-10-14", content("kb5031355.msu"), "Security Updates", "1") +
    update("c3", "5031356", "2026-10-14", content("kb5031356.msu"), "Critical Updates") +
    update("d4", "5031357", "2026-10-20",
           bundled("d4-1", content("kb5031357-x64.cab") + bundled("d4-1-1", content("kb5031357-sub.cab")))) +
    "</updates>";
const std::vector<std::string> kFiles = {"windows6.1-kb5031354-x64.msu", "kb5031357-sub.cab", "kb5031357-x64.cab"};

const std::string kUpcls = "<upcls a=\"Security Updates\" b=\"BL\" c=\"Windows 7#@#Windows Server 2008 R2\"/>";

// The management site answers the posts, the partner's black list with `partnerList`.
void management(DownloadMachine& m, const std::string& partnerList, const std::string& machineIni = "") {
    const std::string manage = "=127.0.0.1:" + std::to_string(m.sites().port("manage")) + "\r\n";
    m.writeMachineIni("127.0.0.1:18080" + manage + "127.0.0.1:18081" + manage + machineIni);
    m.serve("manage", "/wppthmsbbllist.txt", partnerList);
    m.serve("manage", "/wppthdwldinfo.txt", "1");
}

// The gateway holds the black list (dated 11/01/2026) and every content file;
// the partner's list is "0" (nothing blocked).
void standard(DownloadMachine& m) {
    management(m, "0");
    m.writeMsSchedule(kUpcls);
    m.serve("gateway", "/wblist/PatchBlackList.txt", "release date=11/01/2026\r\n");
    std::ofstream(m.root() / "update-catalog.xml") << kCatalog;
    for (const auto& name : kFiles) m.serve("gateway", "/pm/" + name, "gw:" + name);
}
void catalog(DownloadMachine& m, const std::string& updates) {
    std::ofstream(m.root() / "update-catalog.xml") << "<updates>" + updates + "</updates>";
}
// The gateway has no black list, the data center's archive holds none: Temp\PatchBlackList.txt never appears.
void noListFile(DownloadMachine& m) {
    m.sites().setFault("gateway", "/wblist/PatchBlackList.txt", sites::Fault::withStatus(404));
    m.serveZip("dc", "/updates/wblist/wblist.zip", {{"ReadMe.txt", "no list today"}});
}
void gatewayLacks(DownloadMachine& m, const std::vector<std::string>& names) {
    for (const auto& n : names) m.sites().setFault("gateway", "/pm/" + n, sites::Fault::withStatus(404));
}

// The pipeline's own entries, without their module ("proc|type|message|v1|v2|v3").
std::vector<std::string> pipelineEntries(const DownloadMachine& m) {
    static const std::vector<std::string> procs = {
        "Scan_Deploy",  "fncCreateScan", "DownLoad_WsusScanCab", "DownloadCab",        "FncDeployPatch",
        "ReadBlackLis", "ChkBlackList",  "CreateSingleUpdate",   "CreateBundleUpdate", "CreateSubBundleUpdate"};
    std::vector<std::string> out;
    for (const auto& e : m.logMessages()) {
        std::string rest = e.substr(e.find('|') + 1);
        if (std::count(procs.begin(), procs.end(), rest.substr(0, rest.find('|')))) out.push_back(rest);
    }
    return out;
}

// Requests for update files and the catalogue ("site method path status").
std::vector<std::string> fileRequests(const DownloadMachine& m) {
    std::vector<std::string> out;
    for (auto r : m.requestLines())
        if (r.find(" /pm/") != std::string::npos || r.find(" /d/") != std::string::npos)
            out.push_back(r.substr(0, r.rfind(' ')));
    return out;
}

std::vector<std::string> lines(const std::string& text) {
    std::vector<std::string> out;
    std::istringstream in(text);
    for (std::string l; std::getline(in, l);) out.push_back(l.substr(0, l.find('\r')));
    return out;
}
// A record the update agent keeps in the machine folder.
std::vector<std::string> hostLines(const DownloadMachine& m, const char* record) {
    return lines(kpmtest::readHostFile(m.root() / record));
}

std::vector<std::string> cat(std::initializer_list<std::vector<std::string>> parts) {
    std::vector<std::string> out;
    for (const auto& p : parts) out.insert(out.end(), p.begin(), p.end());
    return out;
}

const std::string kScanStart = "fncCreateScan|INFO|Scanning of machine start.|||";
const std::vector<std::string> kOnline = {"Scan_Deploy|INFO|Service Running|||", kScanStart,
                                          "fncCreateScan|INFO|Scanning Method|ONLINE||"};
const std::vector<std::string> kOffline = {
    kScanStart, "fncCreateScan|INFO|Scanning Method|OFFLINE||",
    "DownLoad_WsusScanCab|INFO|Downloading wsusscn2.CAB for Offline Scanning|||",
    "DownloadCab|INFO|Downloading wsusscn2.cab from GateWay|||",
    "DownloadCab|INFO|URL|http://gateway.corp.lan:8080/pm/wsusscn2.cab||", "DownloadCab|INFO|Attempt|1||"};
const std::vector<std::string> kSearched = {"fncCreateScan|INFO|Checking updates successfully..|||",
    "FncDeployPatch|INFO|Downloading Patch|||", "FncDeployPatch|INFO|Searching for the Missing patches|||"};
// The standard catalogue's selection and downloads, all through the gateway.
const std::vector<std::string> kStandardSelection = {
    "ChkBlackList|INFO|KB|20261014|BL|20261101", "FncDeployPatch|INFO|Missing Patch Found|a1.201||",
    "FncDeployPatch|INFO|This is a nonbundled Update|||", "CreateSingleUpdate|INFO|Total Download URL Found|2||",
    "ChkBlackList|INFO|KB|20261020|BL|20261101", "FncDeployPatch|INFO|Missing Patch Found|d4.201||",
    "FncDeployPatch|INFO|This is a bundled Update|||", "CreateBundleUpdate|INFO|Bundle update count for this update|1||",
    "CreateSubBundleUpdate|INFO|Bundle update count for this update|1||",
    "CreateSubBundleUpdate|INFO|Download through Gateway |||", "CreateBundleUpdate|INFO|Download through Gateway |||"};
std::vector<std::string> alreadyDownloaded() {
    return {"CreateSingleUpdate|INFO|Already Downloaded |" + kComponents + kFiles[0] + "||",
            "CreateSubBundleUpdate|INFO|Already Downloaded |" + kComponents + kFiles[1] + "||",
            "CreateBundleUpdate|INFO|Already Downloaded |" + kComponents + kFiles[2] + "||"};
}
const std::vector<std::string> kDone = {"Scan_Deploy|INFO|Searching for Missing patch Completed|||"};

std::vector<std::string> gets(const std::string& site, const std::vector<std::string>& names, int status = 200,
                              int times = 1) {
    std::vector<std::string> out;
    for (const auto& n : names)
        for (int i = 0; i < times; ++i)
            out.push_back(site + " GET " + (site == "gateway" ? "/pm/" : kMsDir) + n + " " + std::to_string(status));
    return out;
}

}  // namespace

TEST(MsPipeline, ScanSelectDownload) {
    struct Case {
        const char* name;
        std::function<void(DownloadMachine&)> setup;
        std::vector<std::string> entries;   // the pipeline's entries, exactly; empty: see `contains`
        std::vector<std::string> contains;  // entries that occur in this order
        std::vector<std::string> listed;    // DwldURL.txt (file names in the components folder)
        const char* how;                    // DownloadStatus.ini: every listed file came so
        std::vector<std::string> requests;  // file and catalogue requests of the gateway and Microsoft
        std::vector<std::string> searches;  // the update agent's search record; empty: not compared
        std::string errdesc = "";                      // the error trail the status post carried
        std::vector<std::string> agentDownloads = {};  // what the update agent was asked to download
    };
    const std::string search = "Search isinstalled=0; ServerSelection=3; ServiceID=";
    const std::string onlineSearch = search + kMicrosoftUpdate + "; Proxy=; UserName=; Password=; Updates=3";
    const std::string catalogCopied =
        "DownloadCab|INFO|Downloaded wsusscn2.CAB Complete..copied|" + kProgram + "\\wsusscn2.cab||";
    const std::string noCab = "fncCreateScan|ERROR|Unable to download Wsusscn2.cab File for offline scanning. "
                              "Terminating the program|||";
    const Case cases[] = {
        {"online scan, everything through the gateway",
         standard, cat({kOnline, kSearched, kStandardSelection, kDone}), {}, kFiles, "Offline",
         gets("gateway", kFiles), {onlineSearch}},
        {"no Internet: the gateway's catalogue, scanned offline",
         [](DownloadMachine& m) {
             standard(m);
             m.sites().setFault("microsoft", kpmtest::kProbePagePath, sites::Fault::withStatus(404));
             m.serve("gateway", "/pm/wsusscn2.cab", kCatalog);
             std::filesystem::remove(m.root() / "update-catalog.xml");
         },
         cat({kOnline, kOffline, {catalogCopied, "fncCreateScan|INFO|Cab files added successfull for offline scanning."
                                  "|||"}, kSearched, kStandardSelection, kDone}),
         {}, kFiles, "Offline", cat({gets("gateway", {"wsusscn2.cab"}), gets("gateway", kFiles)}),
         {search + "offline; Proxy=; UserName=; Password=; Updates=3"},
         " : Unexpected status Object 30: [404] [Not Found] URL : http://www.microsoft.com"},
        {"the online search fails and the gateway has no catalogue",
         [](DownloadMachine& m) {
             standard(m);
             management(m, "0", "[WindowsUpdate]\r\nSearchError=0x8024402C\r\n");
         },
         {}, cat({kOnline, {"*fncCreateScan|ERROR|In fncCreateScan.|-2145107924|"}, kOffline,
                  {"DownloadCab|INFO|Attempt|2||", "DownloadCab|INFO|Attempt|3||", noCab}}),
         {}, "", gets("gateway", {"wsusscn2.cab"}, 404, 3), {onlineSearch.substr(0, onlineSearch.rfind(';')) + "; Error=0x8024402C"},
         " fncCreateScan : 2 : -2145107924"},
        {"the partner's list, the file's entries by system, and its date",
         [](DownloadMachine& m) {
             standard(m);
             management(m, "5031354");
             m.serve("gateway", "/wblist/PatchBlackList.txt",
                     "; lines without a comma are no entries\r\n5031359\r\n\r\n"
                     "Microsoft Windows 7 Professional,Service Pack 1,5031358\r\n"
                     "Windows Server 2008 R2,Service Pack 1,5031361\r\nRelease Date=11/01/2026\r\n");
             catalog(m, update("p1", "5031354", "2026-10-14", content("kb5031354.msu")) +
                            update("e1", "5031358", "2026-10-14", content("kb5031358.msu")) +
                            update("k1", "5031359", "2026-10-14", content("kb5031359.msu")) +
                            update("o1", "5031361", "2026-10-14", content("kb5031361.msu")) +
                            update("n1", "5031360", "2026-11-01", content("kb5031360.msu")));
             for (const char* n : {"kb5031359.msu", "kb5031361.msu"}) m.serve("gateway", std::string("/pm/") + n, n);
         },
         cat({kOnline, kSearched,
              {"ChkBlackList|INFO|This Patch is Black listed by Partner|5031354||",
               "ChkBlackList|INFO|KB|20261014|BL|20261101",
               "ChkBlackList|INFO|This patch is Black listed by MSP@VORN 5031358|||",
               "ChkBlackList|INFO|KB|20261014|BL|20261101", "FncDeployPatch|INFO|Missing Patch Found|k1.201||",
               "FncDeployPatch|INFO|This is a nonbundled Update|||", "CreateSingleUpdate|INFO|Total Download URL Found|1||",
               "ChkBlackList|INFO|KB|20261014|BL|20261101", "FncDeployPatch|INFO|Missing Patch Found|o1.201||",
               "FncDeployPatch|INFO|This is a nonbundled Update|||", "CreateSingleUpdate|INFO|Total Download URL Found|1||",
               "ChkBlackList|INFO|KB|20261101|BL|20261101",
               "ChkBlackList|INFO|Microsoft has released 5031360 patch after we released the black list so skipping "
               "this patch : 20261101 Patch Black List Date|20261101||"},
              kDone}),
         {}, {"kb5031359.msu", "kb5031361.msu"}, "Offline",
         gets("gateway", {"kb5031359.msu", "kb5031361.msu"}), {}},
        {"scope AL: no black-list file and no date rule, the partner's list still applies",
         [](DownloadMachine& m) {
             standard(m);
             management(m, "5031354");
             m.writeMsSchedule("<upcls a=\"Security Updates\" b=\"AL\" c=\"Windows 7#@#\"/>");
             noListFile(m);
             catalog(m, update("p1", "5031354", "2026-10-14", content("kb5031354.msu")) +
                            update("n1", "5031360", "2026-11-14", content("kb5031360.msu")));
             m.serve("gateway", "/pm/kb5031360.msu", "n1");
         },
         cat({kOnline, kSearched,
              {"ChkBlackList|INFO|This Patch is Black listed by Partner|5031354||",
               "FncDeployPatch|INFO|Missing Patch Found|n1.201||", "FncDeployPatch|INFO|This is a nonbundled Update|||",
               "CreateSingleUpdate|INFO|Total Download URL Found|1||"},
              kDone}),
         {}, {"kb5031360.msu"}, "Offline", gets("gateway", {"kb5031360.msu"}), {}},
        {"scope BL without the black-list file: nothing is selected",
         [](DownloadMachine& m) {
             standard(m);
             noListFile(m);
         },
         {}, cat({kOnline, {"fncCreateScan|INFO|Checking updates successfully..|||",
                            "*ReadBlackLis|ERROR|In ReadBlackLis.|53|",
                            "FncDeployPatch|INFO|Invalid file Format BlackList or file not found|||"}, kDone}),
         {}, "", {}, {}, " Invalid BlackList format  Invalid file Format BlackList or file not found"},
        {"two elements, an empty list and one without separator: the update is handed over twice",
         [](DownloadMachine& m) {
             standard(m);
             m.writeMsSchedule("<upcls a=\"Security Updates\" b=\"BL\" c=\"Windows 7#@#Windows Vista\"/>"
                               "<upcls a=\"Security Updates\" b=\"BL\" c=\"\"/>"
                               "<upcls a=\"Security Updates\" b=\"BL\" c=\"Windows 8\"/>");
         },
         {}, cat({kStandardSelection, {"FncDeployPatch|INFO| Intended Product not found|||",
                  "FncDeployPatch|INFO|Intended Product list holds no #@#: the products compared stay as they were|Windows 8||",
                  "FncDeployPatch|INFO|Missing Patch Found|a1.201||"}, alreadyDownloaded(), kDone}),
         cat({kFiles, kFiles}), "Online",
         gets("gateway", kFiles), {}},
        {"a content URL without extension: the update agent downloads the bundle",
         [](DownloadMachine& m) {
             standard(m);
             catalog(m, update("w1", "5031362", "2026-10-14",
                               bundled("w1-1", "<content url=\"http://download.windowsupdate.com/c/kb5031362\"/>" +
                                                   content("kb5031362.cab")) +
                                   bundled("w1-2", content("kb5031362-2.cab"))));
         },
         cat({kOnline, kSearched,
              {"ChkBlackList|INFO|KB|20261014|BL|20261101", "FncDeployPatch|INFO|Missing Patch Found|w1.201||",
               "FncDeployPatch|INFO|This is a bundled Update|||",
               "CreateBundleUpdate|INFO|Bundle update count for this update|2||",
               "CreateSubBundleUpdate|INFO|Bundle update count for this update|0||",
               "CreateBundleUpdate|INFO|Download update with the help of Windows API |||"},
              kDone}),
         {}, {}, "", {}, {}, "", {"Download w1.201 KB5031362"}},
        {"gateway made mandatory: a file the gateway lacks stays missing",
         [](DownloadMachine& m) {
             standard(m);
             m.writeMsSchedule(kUpcls, "1");
             gatewayLacks(m, {kFiles[0]});
             m.serve("microsoft", kMsDir + kFiles[0], "ms");
         },
         {}, {"FncDeployPatch|INFO|Configured to download patches through Gateway|||",
              "CreateSingleUpdate|INFO|Total Download URL Found|2||", "ChkBlackList|INFO|KB|20261020|BL|20261101"},
         {kFiles[1], kFiles[2]}, "Offline",
         cat({gets("gateway", {kFiles[0]}, 404, 3), gets("gateway", {kFiles[1], kFiles[2]})}), {}},
        {"gateway not mandatory: Microsoft's URL through the library, then the download object",
         [](DownloadMachine& m) {
             standard(m);
             m.writeMsSchedule(kUpcls, "0");
             gatewayLacks(m, kFiles);
             m.serve("microsoft", kMsDir + kFiles[0], "ms");
             m.serve("microsoft", kMsDir + kFiles[1], "ms");
             m.sites().setFault("microsoft", kMsDir + kFiles[1], sites::Fault::withStatus(500, 1));
         },
         {}, {"CreateSingleUpdate|INFO|Trying to Download Again through DownloadURL_FIle|" + msUrl(kFiles[0]) + "||",
              "CreateSubBundleUpdate|ERROR|Download Failed through DownloadURL_FIle|" + msUrl(kFiles[1]) + "|Failed|",
              "CreateSubBundleUpdate|INFO|Trying to Download Again|" + msUrl(kFiles[1]) + "||",
              "CreateBundleUpdate|ERROR|Download Failed through DownloadURL_FIle|" + msUrl(kFiles[2]) + "|Failed|"},
         {kFiles[0], kFiles[1]}, "Online",
         cat({gets("gateway", {kFiles[0]}, 404, 3), gets("microsoft", {kFiles[0]}),
              gets("gateway", {kFiles[1]}, 404, 3), gets("microsoft", {kFiles[1]}, 500), gets("microsoft", {kFiles[1]}),
              gets("gateway", {kFiles[2]}, 404, 3), gets("microsoft", {kFiles[2]}, 404, 2)}),
         {}, " kb5031357-x64.cab : no channel could download it"},
        {"low disk at the first selected update ends the pass",
         [](DownloadMachine& m) {
             standard(m);
             management(m, "0", "[Drives]\r\nC=536870912000,1610612736\r\n");  // exactly 1536 MB free
         },
         cat({kOnline, kSearched,
              {"FncDeployPatch|INFO|" + std::string(58, '*') + "|||",
               "FncDeployPatch|INFO|Download skipped due to the disk Space is less than 1.5 GB, Avail Disk Space : 1536|||",
               "FncDeployPatch|INFO|" + std::string(58, '*') + "|||"}}),
         {}, {}, "", {}, {onlineSearch},
         "Download skipped due to the disk Space is less than 1.5 GB, Avail Disk Space : 1536"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        DownloadMachine m;
        c.setup(m);
        ASSERT_EQ(m.runPass(), 0);
        const auto entries = pipelineEntries(m);
        if (!c.entries.empty()) {
            EXPECT_EQ(entries, c.entries);
        }
        // A leading "*" asks only for an entry that starts with the rest.
        auto at = entries.begin();
        for (const auto& want : c.contains) {
            const bool prefix = want[0] == '*';
            at = std::find_if(at, entries.end(), [&](const std::string& e) {
                return prefix ? e.rfind(want.substr(1), 0) == 0 : e == want;
            });
            EXPECT_NE(at, entries.end()) << "missing or out of order: " << want;
        }
        std::vector<std::string> listed;
        for (const auto& n : c.listed) listed.push_back(kComponents + n);
        EXPECT_EQ(lines(m.read(std::string(kpmtest::kPatchFolder) + "DwldURL.txt")), listed);
        std::vector<std::string> methods;
        for (const auto& n : c.listed)
            if (!std::count(methods.begin(), methods.end(), n + "=" + c.how)) methods.push_back(n + "=" + c.how);
        if (!methods.empty()) methods.insert(methods.begin(), "[DownloadMethod]");
        EXPECT_EQ(lines(m.read(kComponents + "DownloadStatus.ini")), methods);
        EXPECT_EQ(fileRequests(m), c.requests);
        for (const auto& n : c.listed) EXPECT_FALSE(m.read(kComponents + n).empty()) << n;
        auto searches = hostLines(m, "update-searches.log");
        for (auto& line : searches) {
            // The scan package's identifier is the agent's own choice.
            size_t id = line.find("ServiceID=") + 10;
            if (line.compare(id, kMicrosoftUpdate.size(), kMicrosoftUpdate) != 0)
                line.replace(id, line.find(';', id) - id, "offline");
        }
        if (!c.searches.empty()) {
            EXPECT_EQ(searches, c.searches);
        }
        EXPECT_EQ(hostLines(m, "update-downloads.log"), c.agentDownloads);
        std::string errdesc = "none posted";
        for (const auto& p : m.sites().posts())
            if (p.kind == "wppthdwldinfo") {
                size_t from = p.document.find("<errdesc>") + 9;
                errdesc = p.document.substr(from, p.document.find("</errdesc>") - from);
            }
        EXPECT_EQ(errdesc, c.errdesc);
    }
}

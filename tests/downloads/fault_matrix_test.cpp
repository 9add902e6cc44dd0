// Every channel of a pass under every kind of network fault, then the
// machine's own faults (a full drive, an activity log that cannot be
// written), each as a whole pass followed by the next day's pass without the
// fault. Checked on every pass: it ends with "Application stopped.", the
// entries that name the failure, no file that holds less than its site
// served (anywhere on the drive), "DwldURL.txt" and "DownloadStatus.ini"
// listing only whole files, "SchPatch.ini" and registry.reg parsing and
// holding what a pass without faults leaves.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <regex>
#include <sstream>

#include "downloads/downloads_fixture.h"
#include "platform/sim/sim_ini.h"
#include "platform/sim/sim_registry.h"

using kpmtest::DownloadMachine;
namespace fs = std::filesystem;

namespace {

const std::string kComponents = kpmtest::kComponents;
const std::string kProgram = kpmtest::kProgramFolder;
const std::string kPatch = "windows6.1-kb5031354-x64.msu";
const std::string kPatchUrl = "http://gateway.corp.lan:8080/pm/" + kPatch;
const std::string kBlackListUrl = "http://update.vornsoft.com/wblist/PatchBlackList.txt";
const std::string kCabUrl = "http://gateway.corp.lan:8080/pm/wsusscn2.cab";
const std::string kCatalog =
    "<updates><update id=\"a1\" revision=\"201\" installed=\"0\" deployed=\"2026-10-14\" title=\"KB5031354\">"
    "<kb>5031354</kb><category type=\"UpdateClassification\" name=\"Security Updates\"/>"
    "<category type=\"Product\" name=\"Windows 7\"/>"
    "<content url=\"http://download.windowsupdate.com/d/msdownload/update/software/secu/2026/10/" +
    kPatch + "\"/></update></updates>";
const std::string kStopped = "ModComman|CloseAll|INFO|Application stopped.|||";

// The machine on a download day: one missing update whose file only the
// gateway has (never Microsoft: the gateway is mandatory), the black list on
// its own host (so a refused site takes one channel only) and, zipped, at the
// data center, the catalogue on the gateway, the management site answering.
// Transfers that hear nothing for 1 s fail; library polls wait up to 100 ms.
void world(DownloadMachine& m, const std::string& machineExtra = "") {
    const std::string manage = "=127.0.0.1:" + std::to_string(m.sites().port("manage")) + "\r\n";
    m.writeMachineIni("127.0.0.1:18080" + manage + "127.0.0.1:18081" + manage + machineExtra);
    std::string ini = kpmtest::readHostFile(m.root() / "machine.ini");
    ini.replace(ini.find("PollWaitMs=20"), 13, "PollWaitMs=100");
    ini.replace(ini.find("StallSeconds=2"), 14, "StallSeconds=1");
    m.setMachineIni(ini);
    m.writeAgentIni("PMDownload=http://gateway.corp.lan:8080/pm\r\nWBListDownload=http://update.vornsoft.com/wblist\r\n");
    m.writeMsSchedule("<upcls a=\"Security Updates\" b=\"BL\" c=\"Windows 7#@#Windows Server 2008 R2\"/>", "1");
    m.serve("manage", "/wppthmsbbllist.txt", "5000001,5000002");
    m.serve("manage", "/wppthdwldinfo.txt", "acknowledged");
    m.serve("updates", "/wblist/PatchBlackList.txt", "release date=11/01/2026\r\n");
    m.serveZip("dc", "/updates/wblist/wblist.zip", {{"PatchBlackList.txt", "release date=11/01/2026\r\n"}});
    std::ofstream(m.root() / "update-catalog.xml") << kCatalog;
    m.serve("gateway", "/pm/" + kPatch, std::string(20000, 'p'));
    m.serve("gateway", "/pm/wsusscn2.cab", kCatalog);
}

// What a pass left, in comparable form.
struct Left {
    std::vector<std::string> entries;  // the pass's entries ("module|proc|type|message|v1|v2|v3")
    std::vector<std::string> listed;   // DwldURL.txt
    std::string methods;               // DownloadStatus.ini
    std::string schedule;              // SchPatch.ini as "[section] key=value" lines, the stamp's time as hh:mm:ss
    std::string registry;
    std::vector<std::string> partial;  // files on the drive that hold less than their site served
    bool temp = false;                 // the Temp folder or a staged transfer is still there
};

Left inspect(DownloadMachine& m, size_t firstEntry) {
    Left l;
    auto all = m.logMessages();
    l.entries.assign(all.begin() + static_cast<std::ptrdiff_t>(std::min(firstEntry, all.size())), all.end());
    std::istringstream list(m.read(kpmtest::kPatchFolder + std::string("DwldURL.txt")));
    for (std::string line; std::getline(list, line);) l.listed.push_back(line.substr(0, line.find('\r')));
    l.methods = m.read(kComponents + "DownloadStatus.ini");

    // SchPatch.ini must read as an INI file; the stamp's time of day varies with the waits.
    const std::string sch = m.read(kProgram + "\\SchPatch.ini");
    std::string section;
    for (const auto& line : platform::sim::scanIni(sch)) {
        using K = platform::sim::IniLine::Kind;
        if (line.kind == K::Other) l.schedule += "unreadable line: " + sch.substr(line.begin, line.end - line.begin) + "\n";
        if (line.kind == K::Section) section = line.name;
        if (line.kind == K::Key)
            l.schedule += "[" + section + "] " + line.name + "=" +
                          std::regex_replace(line.value, std::regex(" \\d\\d:\\d\\d:\\d\\d$"), " hh:mm:ss") + "\n";
    }
    l.registry = m.registryText();
    try {
        platform::sim::RegDocument::parse(l.registry);
    } catch (const std::exception& e) {
        l.registry = std::string("unreadable: ") + e.what();
    }

    // Any file on the drive named like a served file must be that file, whole.
    std::map<std::string, std::string> served;
    for (auto& e : fs::recursive_directory_iterator(m.root() / "sites"))
        if (e.is_regular_file()) served[e.path().filename().string()] = kpmtest::readHostFile(e.path());
    for (auto& e : fs::recursive_directory_iterator(m.root() / "drives")) {
        auto s = served.find(e.path().filename().string());
        if (e.is_regular_file() && s != served.end() && kpmtest::readHostFile(e.path()) != s->second)
            l.partial.push_back(e.path().filename().string());
    }
    l.temp = m.exists(kProgram + "\\Temp") || (fs::exists(m.root() / ".transfers") && !fs::is_empty(m.root() / ".transfers"));
    return l;
}

// The files the patch leaves when it came (through the gateway, so "Offline").
std::vector<std::string> patchListed(bool fetched) {
    return fetched ? std::vector<std::string>{kComponents + kPatch} : std::vector<std::string>{};
}
std::string patchMethod(bool fetched) { return fetched ? "[DownloadMethod]\r\n" + kPatch + "=Offline\r\n" : ""; }

// Entries that must occur in this order (other entries may come between).
void expectInOrder(const std::vector<std::string>& entries, const std::vector<std::string>& want) {
    auto at = entries.begin();
    for (const auto& w : want) {
        auto found = std::find(at, entries.end(), w);
        EXPECT_NE(found, entries.end()) << "missing or out of order: " << w;
        if (found != entries.end()) at = found + 1;
    }
}

// ERROR entries other than those a pass without the fault may write, sorted.
std::vector<std::string> newErrors(const std::vector<std::string>& entries, const std::vector<std::string>& baseline) {
    std::vector<std::string> out;
    for (const auto& e : entries)
        if (e.find("|ERROR|") != std::string::npos && !std::count(baseline.begin(), baseline.end(), e)) out.push_back(e);
    std::sort(out.begin(), out.end());
    return out;
}

// A pass without faults, twice (the download day and the next): what every other pass is held to.
struct Reference {
    Left day1, day2;
};
const Reference& reference() {
    static const Reference r = [] {
        Reference ref;
        DownloadMachine m;
        world(m);
        EXPECT_EQ(m.runPass(), 0);
        ref.day1 = inspect(m, 0);
        size_t from = m.logMessages().size();
        EXPECT_EQ(m.TestMachine::runPass(kpmtest::at("2026-11-16T16:10:00")), 0);
        ref.day2 = inspect(m, from);
        return ref;
    }();
    return r;
}

// The day-two pass without faults: it ends normally and holds what the reference holds.
void nextPassIsNormal(DownloadMachine& m, bool patchWasThere) {
    m.sites().clearFaults();
    size_t from = m.logMessages().size();
    ASSERT_EQ(m.TestMachine::runPass(kpmtest::at("2026-11-16T16:10:00")), 0);
    const Left next = inspect(m, from);
    const Left& ref = reference().day2;
    ASSERT_FALSE(next.entries.empty());
    EXPECT_EQ(next.entries.back(), kStopped);
    EXPECT_EQ(next.listed, patchListed(true));
    // A file already there is "Online" whichever channel brought it.
    EXPECT_EQ(next.methods, "[DownloadMethod]\r\n" + kPatch + (patchWasThere ? "=Online\r\n" : "=Offline\r\n"));
    EXPECT_EQ(std::count(next.entries.begin(), next.entries.end(),
                         "ModComman|CreateSingleUpdate|INFO|Already Downloaded |" + kComponents + kPatch + "||"),
              patchWasThere ? 1 : 0);
    EXPECT_EQ(next.schedule, ref.schedule);
    EXPECT_EQ(next.registry, ref.registry);
    EXPECT_TRUE(next.partial.empty()) << next.partial[0];
    EXPECT_FALSE(next.temp);
}

}  // namespace

TEST(FaultMatrix, EveryChannelUnderEveryFault) {
    // How a fault reads in the entries of the transfer that met it.
    struct Fault {
        const char* name;
        std::function<sites::Fault(int times)> make;
        std::string status;  // the download object's first output: the HTTP status, 0 without an answer
        std::function<std::string(const std::string& hostPort)> reason;  // the transfer's words
        std::string postNumber;  // the posting component's error number
        std::string probe;       // the connectivity probe's failure entry
    };
    const std::string probeTrap = "ModComman|ChkInterNetConnectivity|ERROR|In ChkInterNetConnectivity.|-2146697208|"
                                  "The download of the specified resource has failed.|2";
    const std::string probeStatus = "ModComman|ChkInterNetConnectivity|ERROR|Unexpected status Object 30 URL : "
                                    "http://www.microsoft.com|";
    const Fault faults[] = {
        {"refused", [](int) { return sites::Fault::refuse(); }, "0",
         [](const std::string& at) { return "cannot connect to " + at; }, "12029", probeTrap},
        {"404", [](int t) { return sites::Fault::withStatus(404, t); }, "404",
         [](const std::string&) { return std::string("HTTP 404 Not Found"); }, "404", probeStatus + "404|Not Found|"},
        {"500", [](int t) { return sites::Fault::withStatus(500, t); }, "500",
         [](const std::string&) { return std::string("HTTP 500 Internal Server Error"); }, "500",
         probeStatus + "500|Internal Server Error|"},
        {"reset mid-body", [](int t) { return sites::Fault::reset(10, t); }, "200",
         [](const std::string&) { return std::string("transfer interrupted after 10 bytes"); }, "12030", probeTrap},
        {"stall", [](int t) { return sites::Fault::stall(3, t); }, "200",
         [](const std::string&) { return std::string("no data for 1 s"); }, "12002", probeTrap},
        {"slow", [](int t) { return sites::Fault::slow(100000, t); }, "", nullptr, "", ""},
    };
    auto object = [](const Fault& f, const std::string& url, const std::string& hostPort) {
        return "ModComman|fncDownloadFile|ERROR|Downloading file from " + url + "|" + f.status + "|" + f.reason(hostPort) +
               "|" + url;
    };
    // What one cell expects: entries in order, whether the patch arrived, and
    // which support file stays in the program folder.
    struct Outcome {
        std::vector<std::string> entries;
        bool patch = true;
        std::string programFile = "";
    };
    struct Channel {
        const char* name;
        std::function<void(DownloadMachine&)> setup;  // beyond world()
        std::vector<std::string> setupErrors;          // the ERROR entries that setup causes
        const char* site;
        std::string path;
        int times;  // how many requests meet the fault (0: all); a refused site refuses every one
        std::function<Outcome(const Fault&)> outcome;
    };
    const std::string copied = "ModComman|DloadPthOnGateWay|INFO|Download Complete..File copied|" + kComponents + kPatch + "||";
    const std::string libraryFailed =
        "ModComman|DloadPthOnGateWay|ERROR|Download Failed through DownloadURL_FIle|" + kPatchUrl + "|Failed|";
    const std::string noBlackList = "ModMain|Main|INFO|Unable to download Black List file|||";
    const std::string dcFailed = "ModBlackListDownload|DCDownload|ERROR|Could Not Be Downloaded from the DataCenter |"
                                 "http://dc.vornsoft.com/updates/wblist|wblist.zip|";
    const std::string dcOk = "ModBlackListDownload|DCDownload|INFO|Downloaded Successfully from the DataCenter|||";
    const std::string offline = "ModMain|fncCreateScan|INFO|Cab files added successfull for offline scanning.|||";
    const std::string blackList404 = "ModComman|fncDownloadFile|ERROR|Downloading file from " + kBlackListUrl +
                                     "|404|HTTP 404 Not Found|" + kBlackListUrl;
    const Channel channels[] = {
        {"gateway library (KDowFile.dll)", nullptr, {}, "gateway", "/pm/" + kPatch, 2,
         [&](const Fault& f) -> Outcome {
             if (!f.reason) return {{copied}};
             if (f.status != "0") return {{libraryFailed, libraryFailed, copied}};
             // A refused gateway: the download object's last attempt fails too.
             return {{libraryFailed, libraryFailed, object(f, kPatchUrl, "gateway.corp.lan:8080"),
                      "ModComman|DloadPthOnGateWay|ERROR|Download Failed 3 times , Aborting download now.|||"},
                     false};
         }},
        {"download object (black list from the gateway)", nullptr, {}, "updates", "/wblist/PatchBlackList.txt", 0,
         [&](const Fault& f) -> Outcome {
             if (!f.reason) return {{"ModMain|Download_BlackList|INFO|Attempt|1||"}};
             const std::string failed = object(f, kBlackListUrl, "update.vornsoft.com:80");
             return {{failed, failed, failed, "ModMain|Download_BlackList|ERROR|Download Failed 3 times , Aborting download now|||",
                      dcOk}};
         }},
        {"URL download (the data center's wblist.zip)",
         [](DownloadMachine& m) { m.sites().setFault("updates", "/wblist/PatchBlackList.txt", sites::Fault::withStatus(404)); },
         {blackList404, blackList404, blackList404,
          "ModMain|Download_BlackList|ERROR|Download Failed 3 times , Aborting download now|||"},
         "dc", "/updates/wblist/wblist.zip", 1,
         [&](const Fault& f) -> Outcome {
             if (!f.reason) return {{dcOk}};
             const std::string zip = "http://dc.vornsoft.com/updates/wblist/wblist.zip";
             if (f.status == "0") {
                 const std::string failed = object(f, zip, "dc.vornsoft.com:80");
                 return {{dcFailed, "ModBlackListDownload|DCDownload|INFO|Attempt 2nd Downloading again|||", failed, failed,
                          failed, "ModBlackListDownload|Download_BlackList_FromDC|ERROR|Download Failed 3 times , Aborting download now|||",
                          dcFailed, noBlackList},
                         false};
             }
             // The second attempt lands beside the program, where the unzip does not look.
             return {{dcFailed, "ModBlackListDownload|DCDownload|INFO|Attempt 2nd Downloading again|||", dcOk,
                      "ModBlackListDownload|subUnzipFile|ERROR|Archive could not be unpacked|" + std::string(kpmtest::kShortProgramFolder) +
                          "\\Temp\\wblist.zip|Cannot open " + kpmtest::kShortProgramFolder + "\\Temp\\wblist.zip: file not found|",
                      noBlackList},
                     false, "wblist.zip"};
         }},
        {"posts (kWbPost.WebPost to the management site)", nullptr, {}, "manage", "*", 0,
         [&](const Fault& f) -> Outcome {
             if (!f.reason) return {{"modGenericWP|fncWebPostKB|INFO|Return Value|5000001,5000002||"}};
             // The black-list request gives up the pass; the status report's
             // second site meets the released poster.
             return {{"modGenericWP|fncWebPostKB|ERROR|Invalid Webpost for Patches at fncWebPostKB|EMPTY||",
                      "modGenericWP|fncWebPostKB|ERROR|Error Number|" + f.postNumber + "||",
                      "modGenericWP|fncWebPostKB|ERROR|Error Source|kWbPost.WebPost||",
                      "modGenericWP|fncWebPostKB|ERROR|Error Description|" + f.reason("127.0.0.1:18081") + "||",
                      "ModWebPost|FncWebPostDownloadStatus|INFO|Return Value|||",
                      "ModWebPost|FncWebPostDownloadStatus|ERROR|91|Object variable or With block variable not set|2|"},
                     false};
         }},
        {"connectivity probe (www.microsoft.com)", nullptr, {}, "microsoft", kpmtest::kProbePagePath, 0,
         [&](const Fault& f) -> Outcome {
             if (!f.reason) return {{"ModComman|ChkInterNetConnectivity|INFO|Connection to Internet Successful.|||"}};
             return {{f.probe, "ModMain|fncCreateScan|INFO|Scanning Method|OFFLINE||", offline}, true, "wsusscn2.cab"};
         }},
        {"catalogue (wsusscn2.cab from the gateway)",
         [](DownloadMachine& m) {
             m.sites().setFault("microsoft", kpmtest::kProbePagePath, sites::Fault::withStatus(404));
         },
         {probeStatus + "404|Not Found|"},
         "gateway", "/pm/wsusscn2.cab", 0,
         [&](const Fault& f) -> Outcome {
             if (!f.reason) return {{offline}, true, "wsusscn2.cab"};
             const std::string failed = object(f, kCabUrl, "gateway.corp.lan:8080");
             return {{failed, failed, failed,
                      "ModMain|fncCreateScan|ERROR|Unable to download Wsusscn2.cab File for offline scanning. "
                      "Terminating the program|||"},
                     false};
         }},
    };

    const Reference& ref = reference();
    for (const Channel& ch : channels) {
        for (const Fault& f : faults) {
            SCOPED_TRACE(std::string(ch.name) + ", " + f.name);
            DownloadMachine m;
            world(m);
            if (ch.setup) ch.setup(m);
            m.sites().setFault(ch.site, ch.path, f.make(ch.times));
            ASSERT_EQ(m.runPass(), 0);
            const Left left = inspect(m, 0);
            const Outcome want = ch.outcome(f);
            ASSERT_FALSE(left.entries.empty());
            EXPECT_EQ(left.entries.back(), kStopped);
            expectInOrder(left.entries, want.entries);
            std::vector<std::string> baseline = ref.day1.entries;
            baseline.insert(baseline.end(), ch.setupErrors.begin(), ch.setupErrors.end());
            EXPECT_EQ(newErrors(left.entries, baseline), newErrors(want.entries, baseline));
            EXPECT_EQ(left.listed, patchListed(want.patch));
            EXPECT_EQ(left.methods, patchMethod(want.patch));
            EXPECT_TRUE(left.partial.empty()) << left.partial[0];
            EXPECT_FALSE(left.temp);
            for (const char* name : {"wblist.zip", "wsusscn2.cab"})
                EXPECT_EQ(m.exists(kProgram + "\\" + name), want.programFile == name) << name;
            EXPECT_EQ(left.schedule, ref.day1.schedule);
            EXPECT_EQ(left.registry, ref.day1.registry);
            nextPassIsNormal(m, want.patch);
        }
    }
}

TEST(FaultMatrix, MachineFaults) {
    const std::string drives = "[Drives]\r\nC=536870912000,";
    const std::string log = kpmtest::kLogPath;
    struct Case {
        const char* name;
        std::function<void(DownloadMachine&)> fault, heal;
        std::vector<std::string> entries;  // in order; {"none"}: the pass writes no entry at all
        bool patch;
        bool stamped;  // "SchPatch.ini" got the day's stamp
    };
    const Case cases[] = {
        {"drive nearly full: the download is skipped",
         [&](DownloadMachine& m) { world(m, drives + "104857\r\n"); }, [](DownloadMachine& m) { world(m); },
         {"ModComman|FncDeployPatch|INFO|Download skipped due to the disk Space is less than 1.5 GB, Avail Disk Space : 0.1|||",
          kStopped},
         false, true},
        {"drive full: not even the log's first line fits, the pass leaves at once",
         [&](DownloadMachine& m) { world(m, drives + "0\r\n"); }, [](DownloadMachine& m) { world(m); }, {"none"}, false,
         false},
        {"activity log read-only: the pass runs, unlogged",
         [&](DownloadMachine& m) {
             m.writeFile(log, "#Software: VORN.AgentMonitoring.KPMDwld\r\n");
             fs::permissions(m.hostPath(log), fs::perms::owner_write, fs::perm_options::remove);
         },
         [&](DownloadMachine& m) { fs::permissions(m.hostPath(log), fs::perms::owner_write, fs::perm_options::add); },
         {"none"}, true, true},
        {"log folder cannot be made: the pass leaves at once",
         [](DownloadMachine& m) { m.writeFile(kProgram + "\\ApplicationLog", "a file where the folder goes"); },
         [](DownloadMachine& m) { m.removeFile(kProgram + "\\ApplicationLog"); }, {"none"}, false, false},
    };
    const Reference& ref = reference();
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        DownloadMachine m;
        world(m);
        const std::string registryBefore = m.registryText();
        c.fault(m);
        ASSERT_EQ(m.runPass(), 0);
        const Left left = inspect(m, 0);
        if (c.entries == std::vector<std::string>{"none"}) {
            EXPECT_TRUE(left.entries.empty()) << left.entries[0];
        } else {
            expectInOrder(left.entries, c.entries);
            EXPECT_EQ(left.entries.back(), kStopped);
        }
        EXPECT_EQ(left.listed, patchListed(c.patch));
        EXPECT_EQ(left.methods, patchMethod(c.patch));
        EXPECT_TRUE(left.partial.empty()) << left.partial[0];
        EXPECT_FALSE(left.temp);
        EXPECT_EQ(left.schedule, c.stamped ? ref.day1.schedule : "");
        EXPECT_EQ(left.registry, c.stamped ? ref.day1.registry : registryBefore);
        c.heal(m);
        nextPassIsNormal(m, c.patch);
    }
}

// The download channels one call at a time: which attempts they make, what
// they log, where the file lands, and that a failed transfer leaves nothing.
#include <gtest/gtest.h>

#include <filesystem>

#include "config/agent_settings.h"
#include "downloads/downloads_fixture.h"
#include "log/w3c_log.h"
#include "mspatch/download_channels.h"
#include "mspatch/download_state.h"
#include "platform/host.h"

using kpmtest::DownloadMachine;

namespace {

const std::string kGw = "http://gateway.corp.lan:8080/pm/";
const std::string kMs = "http://download.windowsupdate.com/d/msdownload/update/software/secu/2026/10/";
const std::string kComponents = kpmtest::kComponents;

// Opens the machine with the download library in place and the agent's
// settings read, ready for single calls.
void openForCalls(DownloadMachine& m) {
    m.writeFile(std::string(kpmtest::kPatchFolder) + "KDowFile.dll", "MZ");
    m.makeFolder(kComponents);
    m.open(kpmtest::at("2026-11-15T16:10:00"));
    kpm::OpenW3CLog();
    kpm::InitializeEXE();
}

// The entries logged since `from` ("proc|type|message|v1|v2|v3").
std::vector<std::string> since(const DownloadMachine& m, size_t from) {
    auto all = m.logMessages();
    std::vector<std::string> out;
    for (size_t i = from; i < all.size(); ++i) out.push_back(all[i].substr(all[i].find('|') + 1));
    return out;
}

// Files in a host folder other than the ones a test put there.
std::vector<std::string> namesIn(const std::filesystem::path& dir) {
    std::vector<std::string> out;
    std::error_code ec;
    for (auto& e : std::filesystem::directory_iterator(dir, ec)) out.push_back(e.path().filename().string());
    std::sort(out.begin(), out.end());
    return out;
}

}  // namespace

// Two library failures, then the download object's last attempt brings the file.
TEST(Channels, GatewayAttemptsAndFallbacks) {
    const std::string body(70000, 'p');
    const std::string url = kGw + "windows6.1-kb1-x64.msu";
    const std::string dest = kComponents + "windows6.1-kb1-x64.msu";
    const std::string attempt = "DloadPthOnGateWay|INFO|Trying to Download through DownloadURL_FIle|" + url + "||";
    const std::string failed = "DloadPthOnGateWay|ERROR|Download Failed through DownloadURL_FIle|" + url + "|Failed|";
    const std::string again = "DloadPthOnGateWay|INFO|Trying to Download Again|" + url + "|Failed|";
    DownloadMachine m(false);
    m.serve("gateway", "/pm/windows6.1-kb1-x64.msu", body);
    m.sites().setFault("gateway", "/pm/windows6.1-kb1-x64.msu", sites::Fault::withStatus(404, 2));
    openForCalls(m);
    size_t from = m.logMessages().size();
    EXPECT_TRUE(kpm::DloadPthOnGateWay(url));
    m.close();
    EXPECT_EQ(since(m, from), (std::vector<std::string>{
                                  "DloadPthOnGateWay|INFO|Downloading Patch From GateWay.|||",
                                  "DloadPthOnGateWay|INFO|URL|" + url + "||",
                                  "DloadPthOnGateWay|INFO|File name|windows6.1-kb1-x64.msu||",
                                  "DloadPthOnGateWay|INFO|Attempt|1||", attempt, failed, again,
                                  "DloadPthOnGateWay|INFO|Attempt|2||", attempt, failed, again,
                                  "DLoadPchFromMicrosoft|INFO|Attempt|Last||",
                                  "DloadPthOnGateWay|INFO|Download Complete..File copied|" + dest + "||"}));
    EXPECT_EQ(m.sites().requests().size(), 3u);
    EXPECT_EQ(m.read(dest), body);
    EXPECT_EQ(kpm::downloadCounters.LastDownloadChannel, "Offline");
    EXPECT_EQ(kpm::downloadCounters.LastDownloadedFile, dest);
    // Nothing half-written is left anywhere.
    EXPECT_EQ(namesIn(m.hostPath(kComponents)), std::vector<std::string>{"windows6.1-kb1-x64.msu"});
    EXPECT_TRUE(namesIn(m.root() / ".transfers").empty());
}

TEST(Channels, NamesFoldersAndRefusals) {
    struct Case {
        const char* name;
        std::function<bool()> call;
        std::string downloadSection;  // the agent INI's [Download]
        std::vector<std::string> entries;
        std::string landsAt;  // "" when nothing may be written
    };
    const std::string pm = kpmtest::kPatchFolder;
    const Case cases[] = {
        {"Microsoft: a URL without /", [] { return kpm::DLoadPchFromMicrosoft("windows6.1-kb2.msu"); }, "",
         {"DLoadPchFromMicrosoft|ERROR|Invalid URL|windows6.1-kb2.msu||"}, ""},
        {"gateway: a URL without /", [] { return kpm::DloadPthOnGateWay("windows6.1-kb2.msu"); }, "",
         {"DloadPthOnGateWay|INFO|Invalid URL.|windows6.1-kb2.msu||"}, ""},
        {"gateway not configured", [] { return kpm::DloadPthOnGateWay(kMs + "windows6.1-kb2.msu"); }, "",
         {"DloadPthOnGateWay|INFO|Downloading Patch From GateWay.|||",
          "DloadPthOnGateWay|INFO|Gateway not configured for Patch Download|||"}, ""},
        {"Microsoft: KGnMD5.dll lands beside the program",
         [] { return kpm::DLoadPchFromMicrosoft(kMs + "KGnMD5.dll"); }, "",
         {"DLoadPchFromMicrosoft|INFO|Downloading Patch From Microsoft.|||",
          "DLoadPchFromMicrosoft|INFO|URL|" + kMs + "KGnMD5.dll||", "DLoadPchFromMicrosoft|INFO|File name|KGnMD5.dll||",
          "DLoadPchFromMicrosoft|INFO|Attempt|Last||",
          "DLoadPchFromMicrosoft|INFO|Download Complete..File copied|" + pm + "KGnMD5.dll||"},
         pm + "KGnMD5.dll"},
        {"gateway: KGnMD5.dll lands in the components folder, the base gets its /",
         [] { return kpm::DloadPthOnGateWay(kMs + "KGnMD5.dll"); }, "PMDownload=http://gateway.corp.lan:8080/pm\r\n",
         {"DloadPthOnGateWay|INFO|Downloading Patch From GateWay.|||",
          "DloadPthOnGateWay|INFO|URL|" + kGw + "KGnMD5.dll||", "DloadPthOnGateWay|INFO|File name|KGnMD5.dll||",
          "DloadPthOnGateWay|INFO|Attempt|1||",
          "DloadPthOnGateWay|INFO|Trying to Download through DownloadURL_FIle|" + kGw + "KGnMD5.dll||",
          "DloadPthOnGateWay|INFO|Download Complete..File copied|" + kComponents + "KGnMD5.dll||"},
         kComponents + "KGnMD5.dll"},
        {"a name with .. is refused", [] { return kpm::DLoadPchFromMicrosoft(kMs + "..\\..\\KPMDwld.exe"); }, "",
         {"DLoadPchFromMicrosoft|ERROR|File name refused: it would be written outside its folder|..\\..\\KPMDwld.exe|" +
          kMs + "..\\..\\KPMDwld.exe|"}, ""},
        {"a name with a drive is refused", [] { return kpm::DloadPthOnGateWay(kMs + "C:evil.dll"); }, "",
         {"DloadPthOnGateWay|ERROR|File name refused: it would be written outside its folder|C:evil.dll|" + kMs +
          "C:evil.dll|"}, ""},
        {"an unmapped host is unreachable", [] { return kpm::fncDownloadFile("http://elsewhere.example/x.msu", kComponents + "x.msu"); }, "",
         {"fncDownloadFile|ERROR|Downloading file from http://elsewhere.example/x.msu|0|host not found: elsewhere.example|http://elsewhere.example/x.msu"}, ""},
        {"the URL download answers 404", [] { return kpm::DownloadFile(kMs + "missing.msu", kComponents + "missing.msu"); }, "",
         {}, ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        DownloadMachine m(false);
        m.writeAgentIni(c.downloadSection);
        m.serve("microsoft", "/d/msdownload/update/software/secu/2026/10/KGnMD5.dll", "md5 library");
        m.serve("gateway", "/pm/KGnMD5.dll", "md5 library");
        openForCalls(m);
        size_t from = m.logMessages().size();
        EXPECT_EQ(c.call(), !c.landsAt.empty());
        m.close();
        EXPECT_EQ(since(m, from), c.entries);
        if (!c.landsAt.empty()) {
            EXPECT_EQ(m.read(c.landsAt), "md5 library");
        }
        EXPECT_EQ(namesIn(m.hostPath(kComponents)).size(), c.landsAt.rfind(kComponents, 0) == 0 ? 1u : 0u);
        EXPECT_FALSE(m.exists(std::string(kpmtest::kInstallPath) + "BaseComponents\\KPMDwld.exe"));
    }
}

TEST(Channels, AStalledGatewayIsGivenUpAndAFullDriveKeepsNothing) {
    // The library polls once a (simulated) second; a transfer that stops
    // moving is abandoned after the limit, and the attempt counts as failed.
    DownloadMachine m(false);
    m.writeMachineIni("[Drives]\r\n");
    m.serve("gateway", "/pm/big.msu", std::string(5000, 'b'));
    m.sites().setFault("gateway", "/pm/big.msu", sites::Fault::stall(30, 1));
    openForCalls(m);
    size_t from = m.logMessages().size();
    EXPECT_EQ(kpm::DownloadURL_File(kGw + "big.msu", kComponents + "big.msu"), "Failed");
    auto stalled = since(m, from);
    ASSERT_EQ(stalled.size(), 1u);
    EXPECT_EQ(stalled[0], "DownloadURL_File|ERROR| Download Failed through DownloadURL_FIle|" + kGw +
                              "big.msu|no data for 60 s|");
    EXPECT_EQ(kpm::DownloadURL_File(kGw + "big.msu", kComponents + "big.msu"), "Success");
    m.close();

    // A drive with room for the log but not for the file.
    DownloadMachine full(false);
    full.serve("gateway", "/pm/big.msu", std::string(200000, 'b'));
    full.writeMachineIni("[Drives]\r\nC=1000000000,100000\r\n");
    openForCalls(full);
    EXPECT_EQ(kpm::DownloadURL_File(kGw + "big.msu", kComponents + "big.msu"), "Failed");
    EXPECT_FALSE(kpm::fncDownloadFile(kGw + "big.msu", kComponents + "big.msu"));
    full.close();
    EXPECT_FALSE(full.exists(kComponents + "big.msu"));
    EXPECT_TRUE(namesIn(full.root() / ".transfers").empty());
}

// A checksum that matches is kept by the third-party file download (see
// ProductList); without the library there is none, and the entry says why.
TEST(Channels, NoChecksumWithoutTheLibrary) {
    DownloadMachine m(false);
    const std::string file = kComponents + "setup.exe";
    m.writeFile(file, "setup");
    openForCalls(m);
    size_t from = m.logMessages().size();
    EXPECT_EQ(kpm::fncCheckSum(file), "");
    m.close();
    EXPECT_EQ(since(m, from), (std::vector<std::string>{
                                  "fncCheckSum|ERROR| Unable to generate MD5 Checksum|53|File not found: KGnMD5.dll|126"}));
}

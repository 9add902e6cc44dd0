// Whole passes that must first fetch the maker's download library, and the
// patch folders' clean-up at the end of a pass.
#include <gtest/gtest.h>

#include "downloads/downloads_fixture.h"
#include "config/agent_settings.h"
#include "driver/run_state.h"
#include "log/w3c_log.h"
#include "support/support_files.h"

using kpmtest::DownloadMachine;

namespace {

const std::string kDll = std::string(kpmtest::kPatchFolder) + "KDowFile.dll";
const std::string kUrl = kpmtest::kUpdateHostDll;

std::vector<std::string> componentEntries(const DownloadMachine& m) {
    std::vector<std::string> out;
    for (const auto& e : m.logMessages())
        if (e.rfind("ModDownload|subDownloadAllFiles|", 0) == 0) out.push_back(e.substr(12));
    return out;
}

}  // namespace

TEST(ComponentPass, TheDownloadLibraryIsFetchedOnce) {
    struct Case {
        const char* name;
        std::function<void(DownloadMachine&)> setup;
        std::vector<std::string> entries;
        bool present;
    };
    const Case cases[] = {
        {"from the maker's update host",
         [](DownloadMachine& m) { m.serve("updates", "/kScc/KDowFile.dll", "MZ library"); },
         {"subDownloadAllFiles|INFO|Downloading Attempt 1 from, DC|KDowFile.dll||",
          "subDownloadAllFiles|INFO|Successfully Downloaded|" + kUrl + "||"},
         true},
        {"from the gateway when the update host has none",
         [](DownloadMachine& m) { m.serve("gateway", "/pm/KDowFile.dll", "MZ library"); },
         {"subDownloadAllFiles|INFO|Downloading Attempt 1 from, DC|KDowFile.dll||",
          "subDownloadAllFiles|INFO|Downloading Attempt 2 from Gateway|KDowFile.dll||",
          "subDownloadAllFiles|INFO|Successfully Downloaded from Gateway|" + kUrl + "||"},
         true},
        {"nowhere: the third attempt's failure lets the pass go on",
         [](DownloadMachine&) {},
         {"subDownloadAllFiles|INFO|Downloading Attempt 1 from, DC|KDowFile.dll||",
          "subDownloadAllFiles|INFO|Downloading Attempt 2 from Gateway|KDowFile.dll||",
          "subDownloadAllFiles|INFO|Downloading Attempt 3 from DC|||"},
         false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        DownloadMachine m;
        m.removeFile(kDll);
        c.setup(m);
        ASSERT_EQ(m.runPass(), 0);
        EXPECT_EQ(componentEntries(m), c.entries);
        EXPECT_EQ(m.exists(kDll), c.present);
        if (c.present) {
            EXPECT_EQ(m.read(kDll), "MZ library");
        }
        auto msgs = m.logMessages();
        EXPECT_NE(std::find(msgs.begin(), msgs.end(), "ModRegister|RegisteDLL|INFO|DLL check completed Successfully.|||"),
                  msgs.end());
        EXPECT_EQ(msgs.back(), "ModComman|CloseAll|INFO|Application stopped.|||");

        // The next pass finds it and fetches nothing more.
        if (!c.present) continue;
        size_t before = m.requestLines().size();
        m.writeFile(std::string(kpmtest::kProgramFolder) + "\\SchPatch.ini", "");
        ASSERT_EQ(m.runPass(), 0);
        auto requests = m.requestLines();
        for (size_t i = before; i < requests.size(); ++i)
            EXPECT_EQ(requests[i].find("KDowFile.dll"), std::string::npos) << requests[i];
        EXPECT_NE(std::find(m.logMessages().begin(), m.logMessages().end(),
                            "ModRegister|RegisteDLL|INFO|DLL check completed Successfully.|||"),
                  m.logMessages().end());
    }
}

TEST(ComponentPass, PatchFoldersAreCleanedOfWhatThePassDidNotAskFor) {
    const std::string comp = kpmtest::kComponents;
    DownloadMachine m;
    for (const char* name : {"DownloadStatus.ini", "wsusscn2.cab", "WSUSSCAN.CAB", "PatchDLoadStatus.ini",
                             "windows6.1-kb1-x64.msu", "old.exe"})
        m.writeFile(comp + name, "x");
    m.writeFile(comp + "Appcomp\\setup.exe", "x");
    ASSERT_EQ(m.runPass(), 0);
    // This pass downloaded nothing, so its list is empty: every other file goes.
    EXPECT_EQ(m.entriesOf("subDeletePatch"),
              (std::vector<std::string>{"subDeletePatch|INFO|Deleting |" + comp + "old.exe||",
                                        "subDeletePatch|INFO|Deleting |" + comp + "windows6.1-kb1-x64.msu||"}));
    for (const char* kept : {"DownloadStatus.ini", "wsusscn2.cab", "WSUSSCAN.CAB", "PatchDLoadStatus.ini",
                             "Appcomp\\setup.exe"})
        EXPECT_TRUE(m.exists(comp + kept)) << kept;
    EXPECT_FALSE(m.exists(comp + "old.exe"));

    // A name found inside any line of the list survives (a substring test).
    m.writeFile(comp + "windows6.1-kb2-x64.msu", "x");
    m.writeFile(comp + "kb3.msu", "x");
    m.writeFile(std::string(kpmtest::kPatchFolder) + "DwldURL.txt",
                "http://download.windowsupdate.com/d/windows6.1-kb2-x64.msu\r\n");
    m.open(kpmtest::at("2026-11-15T16:10:00"));
    kpm::OpenW3CLog();
    kpm::InitializeEXE();
    size_t from = m.logMessages().size();
    kpm::subReadDownloadList();
    kpm::runState.MSPassRan = true;
    kpm::subCleanPatchFolders();
    m.close();
    auto msgs = m.logMessages();
    EXPECT_EQ(std::vector<std::string>(msgs.begin() + static_cast<long>(from), msgs.end()),
              (std::vector<std::string>{
                  "ModMain|subDeletePatch|INFO|Deleting |" + comp + "kb3.msu||",
                  "ModMain|subDeletePatch|INFO|Patch is in the list, could Not Delete  |" + comp +
                      "windows6.1-kb2-x64.msu||",
              }));
    EXPECT_TRUE(m.exists(comp + "windows6.1-kb2-x64.msu"));
    EXPECT_FALSE(m.exists(comp + "kb3.msu"));
}

TEST(ComponentPass, NoPatchFileIsTouchedWhenTheMicrosoftBranchStoppedBeforeItsBlackList) {
    // No Microsoft schedule file: the window is open but no download is configured.
    DownloadMachine m(false);
    m.writeFile(std::string(kpmtest::kPatchFolder) + "KDowFile.dll", "MZ");
    m.writeFile(std::string(kpmtest::kComponents) + "windows6.1-kb1-x64.msu", "x");
    ASSERT_EQ(m.runPass(), 0);
    EXPECT_TRUE(m.exists(std::string(kpmtest::kComponents) + "windows6.1-kb1-x64.msu"));
    EXPECT_TRUE(m.entriesOf("subDeletePatch").empty());
    EXPECT_TRUE(m.entriesOf("Download_BlackList").empty());
    EXPECT_TRUE(m.sites().requests().empty());
}

// What only the Windows stand-ins' host has: its network.ini (without a
// [Network] section, URLs naming this machine are used as they are, unlike on
// the simulated machine, whose map is always on) and the temporary file
// beside a download.
// The downloads themselves are contract tests.
#include <windows.h>

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "standins/com/win32_standin_host.h"

namespace {

using namespace standins;
using standins::win32::NetworkSettings;

TEST(StandinNetworkIni, SectionsRulesAndStallLimit) {
    struct Case {
        const char* what;
        std::string text;
        bool mapped;
        unsigned stallSeconds;
        const char* error;  // a part of the error text; "" for none
        const char* host;   // resolved at port 8080
        int toPort;         // 0: unreachable
    };
    const Case cases[] = {
        {"no file content", "", false, 30, "", "gateway.example.lan", 0},
        {"downloads only", "[Downloads]\r\nStallSeconds=5\r\n", false, 5, "", "gateway.example.lan", 0},
        {"an empty map", "[Network]\r\n", true, 30, "", "gateway.example.lan", 0},
        {"host and port", "; the gateway\r\n[network]\r\ngateway.example.lan:8080 = 127.0.0.1:5000\r\n", true, 30, "",
         "GATEWAY.example.lan", 5000},
        {"catch-all", "[Network]\r\ngateway.example.lan:9090=127.0.0.1:5000\r\n*=127.0.0.1:6000\r\n", true, 30, "",
         "gateway.example.lan", 6000},
        {"not loopback", "[Network]\r\nx=10.0.0.1:80\r\n", true, 30, "network.ini line 2: [Network]", "x", 0},
        {"no stall", "[Downloads]\r\nStallSeconds=0\r\n", false, 30, "StallSeconds must be 1 to 3600", "x", 0},
    };
    for (const Case& c : cases) {
        NetworkSettings s = win32::parseNetworkSettings(c.text, "network.ini");
        EXPECT_EQ(c.mapped, s.mapped) << c.what;
        EXPECT_EQ(c.stallSeconds, s.stallSeconds) << c.what;
        if (*c.error) {
            EXPECT_NE(std::string::npos, s.error.find(c.error)) << c.what << ": " << s.error;
        } else {
            EXPECT_EQ("", s.error) << c.what;
        }
        auto to = s.map.resolve(c.host, 8080);
        EXPECT_EQ(c.toPort, to ? to->port : 0) << c.what;
    }
}

TEST(StandinNetworkIni, WithAMapAHostItDoesNotNameIsNotFound) {
    NetworkSettings settings = win32::parseNetworkSettings("[Network]\r\nknown.example.lan=127.0.0.1:9\r\n", "n");
    auto transport = win32::newWin32StandinHost(settings)->newTransport();
    bool called = false;
    TransferResult r = transport->get(
        "http://unknown.example.lan/a.txt", [&](const char*, size_t) { return called = true; }, nullptr);
    EXPECT_FALSE(r.ok);
    EXPECT_TRUE(r.unresolved);
    EXPECT_EQ(0, r.httpStatus);
    EXPECT_EQ("host not found: unknown.example.lan", r.reason);
    EXPECT_FALSE(called);

    // Without a map, only this machine's own addresses are used as they are.
    r = win32::newWin32StandinHost(NetworkSettings{})->newTransport()->get("http://update.vornsoft.com/k", {}, nullptr);
    EXPECT_TRUE(r.unresolved);
    EXPECT_EQ("host not found: update.vornsoft.com", r.reason);

    settings = win32::parseNetworkSettings("[Network]\r\nx=10.0.0.1:80\r\n", "n");
    r = win32::newWin32StandinHost(settings)->newTransport()->get("http://x/a.txt", {}, nullptr);
    EXPECT_FALSE(r.ok);
    EXPECT_NE(std::string::npos, r.reason.find("loopback")) << r.reason;
}

// A scratch folder of this test's own in the prefix.
class StandinFiles : public ::testing::Test {
protected:
    void SetUp() override {
        host_ = win32::newWin32StandinHost(NetworkSettings{});
        removeTree(kRoot);
        ASSERT_TRUE(host_->makeFolders(std::string(kRoot) + "\\a\\b"));
    }
    void TearDown() override { removeTree(kRoot); }

    static std::vector<std::string> names(const std::string& folder) {
        std::vector<std::string> out;
        WIN32_FIND_DATAA d;
        HANDLE h = FindFirstFileA((folder + "\\*").c_str(), &d);
        if (h == INVALID_HANDLE_VALUE) return out;
        do {
            std::string n = d.cFileName;
            if (n != "." && n != "..") out.push_back(n);
        } while (FindNextFileA(h, &d));
        FindClose(h);
        return out;
    }
    static std::string read(const std::string& path) {
        std::ifstream in(path, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }
    static void removeTree(const std::string& dir) {
        for (const std::string& n : names(dir)) {
            const std::string full = dir + "\\" + n;
            if (GetFileAttributesA(full.c_str()) & FILE_ATTRIBUTE_DIRECTORY) removeTree(full);
            else DeleteFileA(full.c_str());
        }
        RemoveDirectoryA(dir.c_str());
    }

    static constexpr const char* kRoot = "C:\\KPMWin32Test\\standin-files";
    std::shared_ptr<StandinHost> host_;
};

TEST_F(StandinFiles, AFileAppearsUnderItsNameOnlyWhenCommitted) {
    const std::string folder = std::string(kRoot) + "\\a\\b";
    const std::string file = folder + "\\list.txt";
    {
        std::ofstream(file, std::ios::binary) << "older";
    }
    std::string error;
    auto target = host_->newFileTarget();
    ASSERT_TRUE(target->begin(file, error)) << error;
    ASSERT_TRUE(target->write("new ", 4, error)) << error;
    ASSERT_TRUE(target->write("text", 4, error)) << error;
    // Beside the destination, under a name of its own, until committed.
    std::vector<std::string> during = names(folder);
    ASSERT_EQ(2u, during.size());
    EXPECT_EQ("older", read(file));
    ASSERT_TRUE(target->commit(error)) << error;
    EXPECT_EQ(std::vector<std::string>{"list.txt"}, names(folder));
    EXPECT_EQ("new text", read(file));

    auto dropped = host_->newFileTarget();
    ASSERT_TRUE(dropped->begin(folder + "\\other.txt", error)) << error;
    ASSERT_TRUE(dropped->write("x", 1, error)) << error;
    dropped->abandon();
    EXPECT_EQ(std::vector<std::string>{"list.txt"}, names(folder));

    error.clear();
    EXPECT_FALSE(host_->newFileTarget()->begin(std::string(kRoot) + "\\missing\\x.txt", error));
    EXPECT_NE(std::string::npos, error.find("does not exist")) << error;
}

TEST_F(StandinFiles, FoldersAreMadeWithTheirParentsAndOnlyFilesAreReadable) {
    const std::string deep = std::string(kRoot) + "\\c\\d\\e\\";
    EXPECT_TRUE(host_->makeFolders(deep));
    EXPECT_TRUE(host_->makeFolders(deep));  // already there
    EXPECT_EQ(std::vector<std::string>{"e"}, names(std::string(kRoot) + "\\c\\d"));
    const std::string file = deep + "f.txt";
    {
        std::ofstream(file, std::ios::binary) << "f";
    }
    EXPECT_EQ(file, host_->readablePath(file));
    EXPECT_EQ("", host_->readablePath(deep + "none.txt"));
    EXPECT_EQ("", host_->readablePath(std::string(kRoot) + "\\c"));
    EXPECT_FALSE(host_->makeFolders(file + "\\below-a-file"));
}

}  // namespace

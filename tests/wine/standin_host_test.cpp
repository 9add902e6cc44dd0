// What only the Windows stand-ins' host has: its network.ini (without a
// [Network] section, URLs naming this machine are used as they are, unlike on
// the simulated machine, whose map is always on). The downloads themselves,
// their temporary files included, are contract tests.
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

}  // namespace

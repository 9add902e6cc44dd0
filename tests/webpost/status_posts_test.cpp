// The status posts against a real management site (primary and secondary, on
// loopback): the exact log lines, what the sites received (decrypted when the
// post was encrypted) and how each post ends.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "../schedule/schedule_fixture.h"
#include "driver/run_state.h"
#include "mspatch/download_state.h"
#include "platform/errors.h"
#include "sites/sites_server.h"
#include "standins/string_cipher.h"
#include "webpost/status_posts.h"

namespace {

namespace fs = std::filesystem;
using sites::Fault;

const std::string kRegDoc = "<wppthmsbbllist><regid>R1</regid></wppthmsbbllist>";
const std::string kDecrypted = "ModComman|EncDecXML|INFO|File decrypted successfully.|||";
const std::string kStopped = "ModComman|CloseAll|INFO|Application stopped.|||";
const std::string kList = "http://manage.vornsoft.com/tfr_wppthmsbbllist.asp";
const std::string kList2 = "http://manage2.vornsoft.com/tfr_wppthmsbbllist.asp";
const std::string kQuery = "?mmid=M1&sid=S1&rid=R1&rty=W";
const std::string kInfo = "http://manage.vornsoft.com/tfr_wppthdwldinfo.asp" + kQuery;
const std::string kInfo2 = "http://manage2.vornsoft.com/tfr_wppthdwldinfo.asp" + kQuery;

std::string kb(const std::string& message, const std::string& value = "", const char* type = "INFO") {
    return std::string("modGenericWP|fncWebPostKB|") + type + "|" + message + "|" + value + "||";
}
std::string st(const std::string& message, const std::string& value = "") {
    return "ModWebPost|FncWebPostDownloadStatus|INFO|" + message + "|" + value + "||";
}
std::string wrap(const std::string& root, const std::string& doc) {
    return "<" + root + "><![CDATA[" + standins::encryptString(doc) + "]]></" + root + ">";
}

// A configuration entry for `key`: primary and secondary host (empty: none), encryption flag.
std::string entry(const std::string& key, const std::string& primary, const std::string& secondary,
                  const std::string& flag) {
    return "<e k=\"" + key + "\" x=\"asp\" r=\"" + key + "\" n=\"\" s=\"0\" p=\"" + primary + "\" q=\"" + secondary +
           "\" c=\"0\" p2=\"\" q2=\"\" f=\"" + flag + "\"/>";
}

struct Post {
    std::string site, target, body, document;
};

std::vector<std::string> join(std::vector<std::string> a, const std::vector<std::string>& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

class StatusPosts : public schedtest::ScheduleFixture {
protected:
    void SetUp() override {
        sites::Config config;
        for (const char* name : {"manage", "manage2"}) {
            fs::create_directories(machine.root() / name);
            config.sites.push_back({name, machine.root() / name, 0});
        }
        server = std::make_unique<sites::SitesServer>(config);
        server->start();
        machine.setMachineIni(
            "[Machine]\r\nExePath=C:\\Program Files\\VORN\\VORNMobile\\BaseComponents\\PatchManagement\\KPMDwld.exe\r\n"
            "[Drives]\r\nC=53687091200,21474836480\r\n[Network]\r\n"
            "manage.vornsoft.com=127.0.0.1:" + std::to_string(server->port("manage")) + "\r\n"
            "manage2.vornsoft.com=127.0.0.1:" + std::to_string(server->port("manage2")) + "\r\n");
    }
    void TearDown() override {
        server->stop();
        ScheduleFixture::TearDown();
    }

    // Opens the machine with `entries` as the web-post configuration, the
    // sites' answers and faults, and the agent's identity set.
    void start(const std::string& entries, const std::string& answer1, const std::string& answer2,
               std::optional<Fault> fault1, std::optional<Fault> fault2) {
        machine.writeWebPostConfig("<c><fod id=\"NDATAPOST\"><PR4>" + entries + "</PR4></fod></c>");
        server->clearFaults();
        if (fault1) server->setFault("manage", "*", *fault1);
        if (fault2) server->setFault("manage2", "*", *fault2);
        std::ofstream(machine.root() / "manage" / (kind + ".txt")) << answer1;
        std::ofstream(machine.root() / "manage2" / (kind + ".txt")) << answer2;
        posts0 = server->posts().size();
        open("2026-11-15T16:10:00");
        auto& a = kpm::agentSettings;
        a.RegID = "R1", a.SiteID = "S1", a.MemberID = "M1", a.AgentType = "W";
        a.RunStartTime = "11/15/2026 16:10:0";
    }
    std::vector<Post> posts() const {
        std::vector<Post> out;
        auto all = server->posts();
        for (size_t i = posts0; i < all.size(); ++i) {
            const auto& p = all[i];
            out.push_back({p.site, p.path + (p.query.empty() ? "" : "?" + p.query), p.body, p.document});
            EXPECT_EQ(p.kind, kind);
        }
        return out;
    }

    std::unique_ptr<sites::SitesServer> server;
    std::string kind;
    size_t posts0 = 0;
};

void expectPosts(const std::vector<Post>& got, const std::vector<Post>& want) {
    ASSERT_EQ(got.size(), want.size());
    for (size_t i = 0; i < got.size(); ++i) {
        EXPECT_EQ(got[i].site + " " + got[i].target, want[i].site + " " + want[i].target);
        EXPECT_EQ(got[i].body, want[i].body);
        EXPECT_EQ(got[i].document, want[i].document);
    }
}

TEST_F(StatusPosts, BlackListRequest) {
    kind = "wppthmsbbllist";
    const std::string once = "<wppthmsbbllist>" + wrap(kind, kRegDoc) + "</wppthmsbbllist>";
    const std::string twice = "<wppthmsbbllist>" + wrap(kind, once) + "</wppthmsbbllist>";
    const std::vector<std::string> opening = {kb("Webposting for KBArticle Regid", "R1"), kDecrypted};
    auto invalid = [](const std::string& number, const std::string& source, const std::string& description) {
        return std::vector<std::string>{kb("Invalid Webpost for Patches at fncWebPostKB", "EMPTY", "ERROR"),
                                        kb("Error Number", number, "ERROR"), kb("Error Source", source, "ERROR"),
                                        kb("Error Description", description, "ERROR"), kStopped};
    };
    struct Case {
        const char* why;
        std::string entries, answer1, answer2;
        std::optional<Fault> fault1, fault2;
        std::vector<std::string> log;  // after the start lines
        std::vector<Post> posts;
        std::string blackList;  // nullopt-like: "-" when the process ends
    } cases[] = {
        {"the primary answers", entry(kind, "manage.vornsoft.com", "manage2.vornsoft.com", "0"), " KB1,KB2 ", "x",
         {}, {},
         {kb("Webposting to Primary Site for Patches", kList), kb("XMLString", kRegDoc), kb("Return Value", "KB1,KB2")},
         {{"manage", "/tfr_wppthmsbbllist.asp", kRegDoc, kRegDoc}}, "KB1,KB2"},
        {"\"0\" is an answer", entry(kind, "manage.vornsoft.com", "", "0"), "0", "", {}, {},
         {kb("Webposting to Primary Site for Patches", kList), kb("XMLString", kRegDoc), kb("Return Value", "0")},
         {{"manage", "/tfr_wppthmsbbllist.asp", kRegDoc, kRegDoc}}, "0"},
        {"encrypted: an empty primary, the secondary wraps once more", entry(kind, "manage.vornsoft.com", "manage2.vornsoft.com", "1"),
         "", "KB9", Fault::empty(), {},
         {kb("Webposting to Primary Site for Patches", kList), kb("XMLString", kRegDoc),
          kb("Webposting to Secondary Site  for Patches ", kList2), kb("XMLString", once), kb("Return Value", "KB9")},
         {{"manage", "/tfr_wppthmsbbllist.asp?ec=256", once, kRegDoc},
          {"manage2", "/tfr_wppthmsbbllist.asp?ec=256", twice, once}},
         "KB9"},
        {"no entry for the request", entry("wppthdwldinfo", "manage.vornsoft.com", "", "0"), "", "", {}, {},
         join({kb("Primary Webpost URL not found"), kb("Secondary Webpost URL not found")}, invalid("", "", "")),
         {}, "-"},
        {"refused, then 500", entry(kind, "manage.vornsoft.com", "manage2.vornsoft.com", "0"), "KB1", "KB2",
         Fault::refuse(), Fault::withStatus(500),
         join({kb("Webposting to Primary Site for Patches", kList), kb("XMLString", kRegDoc),
               kb("Webposting to Secondary Site  for Patches ", kList2), kb("XMLString", kRegDoc)},
              invalid("500", "kWbPost.WebPost", "HTTP 500 Internal Server Error")),
         {{"manage2", "/tfr_wppthmsbbllist.asp", kRegDoc, kRegDoc}}, "-"},
        {"an unmapped host", entry(kind, "elsewhere.example", "", "0"), "", "", {}, {},
         join({kb("Webposting to Primary Site for Patches", "http://elsewhere.example/tfr_wppthmsbbllist.asp"),
               kb("XMLString", kRegDoc), kb("Secondary Webpost URL not found")},
              invalid("12007", "kWbPost.WebPost", "host not found: elsewhere.example")),
         {}, "-"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.why);
        start(c.entries, c.answer1, c.answer2, c.fault1, c.fault2);
        if (c.blackList == "-") {
            EXPECT_THROW(kpm::fncWebPostKB(), platform::ProcessEnd);
        } else {
            EXPECT_EQ(kpm::fncWebPostKB(), -1);
            EXPECT_EQ(kpm::PartnerBlackList, c.blackList);
        }
        EXPECT_EQ(newLog(), join(opening, c.log));
        expectPosts(posts(), c.posts);
        machine.close();
    }
}

TEST_F(StatusPosts, DownloadStatusReport) {
    kind = "wppthdwldinfo";
    auto doc = [](const std::string& errdesc) {
        return "<wppthdwldinfo><regid>R1</regid><drivespace>51200</drivespace><freedrivespace>20480</freedrivespace>"
               "<alrdydwldpatchsize>0.2</alrdydwldpatchsize><curdwldpatchsize>1.8</curdwldpatchsize>"
               "<alrdynuofpatches>1</alrdynuofpatches><curnuofpatches>2</curnuofpatches><errdesc>" +
               errdesc + "</errdesc><dctime>11/15/2026 16:10:0</dctime></wppthdwldinfo>";
    };
    const std::string plain = doc(" Main : 0 : 5"), odd = doc(" a<b & c");
    const std::string released = "ModWebPost|FncWebPostDownloadStatus|ERROR|91|Object variable or With block variable not set|0|";
    auto sent = [](const std::string& url, const std::string& document, const std::string& answer) {
        return std::vector<std::string>{st("Webpost URL", url), st("Encrypted XML String", document), st("Return Value", answer)};
    };
    struct Case {
        const char* why;
        std::string errorTrail, entries, answer1, answer2;
        std::optional<Fault> fault1;
        std::vector<std::string> log;  // after the configuration's decryption line
        std::vector<Post> posts;
        std::string lastResult, trailAdded;
    } cases[] = {
        {"plain, the primary answers", " Main : 0 : 5", entry(kind, "manage.vornsoft.com", "manage2.vornsoft.com", "0"), "1", "1",
         {}, join({st("XML String ", plain)}, sent(kInfo, plain, "1")),
         {{"manage", "/tfr_wppthdwldinfo.asp" + kQuery, plain, plain}}, "1", ""},
        {"encrypted, \"&ec=256\" after the query", " Main : 0 : 5", entry(kind, "manage.vornsoft.com", "", "1"), "0", "",
         {}, join({st("XML String ", plain)}, sent(kInfo, wrap(kind, plain), "0")),
         {{"manage", "/tfr_wppthdwldinfo.asp" + kQuery + "&ec=256", wrap(kind, plain), plain}}, "0", ""},
        {"errdesc unescaped; the secondary fails on the released poster", " a<b & c",
         entry(kind, "manage.vornsoft.com", "manage2.vornsoft.com", "0"), "", "1", Fault::withStatus(500),
         join(join({st("XML String ", odd)}, sent(kInfo, odd, "")), {released}),
         {{"manage", "/tfr_wppthdwldinfo.asp" + kQuery, odd, odd}}, "", ""},
        {"only a secondary site", " Main : 0 : 5", entry(kind, "", "manage2.vornsoft.com", "0"), "", "1", {},
         join({st("XML String ", plain)}, sent(kInfo2, plain, "1")),
         {{"manage2", "/tfr_wppthdwldinfo.asp" + kQuery, plain, plain}}, "1", ""},
        {"no entry for the report", " Main : 0 : 5", entry("wppthmsbbllist", "manage.vornsoft.com", "", "0"), "1", "1", {},
         {st("Primary and Secondary sites not found in XML")}, {}, "", " Primary and Secondary sites not found in XML"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.why);
        start(c.entries, c.answer1, c.answer2, c.fault1, {});
        kpm::runState.ErrorTrail = c.errorTrail;
        kpm::downloadCounters = {};
        kpm::downloadCounters.AlreadyDownloadedBytes = 262144;    // 0.25 MB: the half goes to the even 0.2
        kpm::downloadCounters.CurrentDownloadedBytes = 1835008;   // 1.75 MB: 1.8
        kpm::downloadCounters.AlreadyDownloadedCount = 1;
        kpm::downloadCounters.CurrentDownloadedCount = 2;
        kpm::FncWebPostDownloadStatus();
        EXPECT_EQ(newLog(), join({kDecrypted}, c.log));
        expectPosts(posts(), c.posts);
        EXPECT_EQ(kpm::statusPosts.LastPostResult, c.lastResult);
        EXPECT_EQ(kpm::runState.ErrorTrail, c.errorTrail + c.trailAdded);
        machine.close();
    }
}

}  // namespace

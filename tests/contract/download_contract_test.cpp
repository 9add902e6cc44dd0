// Downloads, checksums and archives: the maker's download and checksum
// libraries (KDowFile.dll, KGnMD5.dll), the system's URL download, and the
// download and zip objects ("kDwnJob.JobDownload", "ChilkatZip2.Chilkatzip2").
// The files come from the loopback sites server that the "kpm_sites" fixture
// starts (scripts/sites-fixture.sh) over tests/contract/site; its folder,
// named by KPM_SITES_DIR, holds ports.txt and requests.log. Without it the
// tests that need it are skipped.
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "contract_env.h"
#include "platform/errors.h"
#include "platform/host.h"

namespace {

using namespace platform;
using contract::ContractTest;
using contract::errorOf;

// The sites' files, as tests/contract/site holds them.
const std::string kHello = "Hello from the sites server.\r\n";

std::string dataBin() {  // files/data.bin: 100000 bytes of a 32-bit LCG
    std::string out;
    uint32_t x = 12345;
    for (int i = 0; i < 100000; ++i) {
        x = x * 1103515245u + 12345u;
        out.push_back(static_cast<char>((x >> 16) & 0xff));
    }
    return out;
}

std::string blackList() {  // PatchBlackList.txt in files/wblist.zip (deflated there)
    std::string out;
    for (int i = 0; i < 40; ++i) out += "KB" + std::to_string(890830 + 1117 * i) + "\r\n";
    return out;
}

const std::string kBlackListDR = "KB4023057\r\n";  // PatchBlackListDR.txt (stored)

// The ways the program fetches a file.
enum class Channel { DownloadLibrary, UrlDownload, JobObject };

const char* nameOf(Channel c) {
    switch (c) {
    case Channel::DownloadLibrary: return "KDowFile";
    case Channel::UrlDownload: return "URLDownloadToFile";
    case Channel::JobObject: return "JobDownload";
    }
    return "?";
}

// What a failed transfer reported, where the channel reports anything.
struct Outcome {
    bool ok = false;
    std::string status, reason, failedUrl;  // the download object's by-reference answers
    int32_t result = 0;                     // URLDownloadToFile's
};

// A download's outcome, polled as the program does but with short sleeps;
// Running still after a minute of them.
int32_t outcomeOf(int32_t job, int64_t& bytes) {
    int32_t status = kdowfile::Running;
    for (int poll = 0; poll < 600 && status == kdowfile::Running; ++poll) {
        platform::clock().sleep(100);
        status = maker().getDownloadFinalStatus(job, bytes);
    }
    return status;
}

Outcome fetchWithLibrary(const std::string& url, const std::string& destination) {
    Outcome o;
    const int32_t job = maker().asyncDownloadFile(url, destination);
    if (job <= 0) return o;
    int64_t bytes = 0;
    const int32_t status = outcomeOf(job, bytes);
    EXPECT_NE(kdowfile::Running, status) << url << " still running after a minute";
    o.ok = status == kdowfile::Completed;
    return o;
}

Outcome fetchWithJob(const std::string& url, const std::string& destination, int64_t maxBytes = 0) {
    Object job = automation().createObject("kDwnJob.JobDownload");
    if (maxBytes > 0) job.put("MaxBytes", maxBytes);
    Variant u(url), reserved1(""), reserved2(""), dest(destination), status("?"), reason("?"), failedUrl("?");
    Outcome o;
    o.ok = job.call("JobDownload", ByRef{&u}, ByRef{&reserved1}, ByRef{&reserved2}, ByRef{&dest},
                    ByRef{&status}, ByRef{&reason}, ByRef{&failedUrl})
               .toBool();
    o.status = status.toString();
    o.reason = reason.toString();
    o.failedUrl = failedUrl.toString();
    return o;
}

Outcome fetch(Channel c, const std::string& url, const std::string& destination) {
    switch (c) {
    case Channel::DownloadLibrary: return fetchWithLibrary(url, destination);
    case Channel::JobObject: return fetchWithJob(url, destination);
    case Channel::UrlDownload: break;
    }
    Outcome o;
    o.result = internet().urlDownloadToFile(url, destination);
    o.ok = o.result == 0;
    return o;
}

class Downloads : public ContractTest {
protected:
    void SetUp() override {
        ContractTest::SetUp();
        const contract::SitesServer sites = contract::findSitesServer(env());
        if (sites.ports.empty()) GTEST_SKIP() << sites.why;
        sitesDir_ = sites.dir;
        contractPort_ = sites.ports.count("contract") ? sites.ports.at("contract") : 0;
        refusedPort_ = sites.ports.count("refused") ? sites.ports.at("refused") : 0;
        ASSERT_GT(contractPort_, 0) << "no contract site in the ports file";
        ASSERT_GT(refusedPort_, 0) << "no refused site in the ports file";
        // Both sites by address, and one host name that only the map knows.
        const std::string contract = "127.0.0.1:" + std::to_string(contractPort_);
        const std::string refused = "127.0.0.1:" + std::to_string(refusedPort_);
        env().setNetwork("[Network]\r\n" + contract + "=" + contract + "\r\n" + refused + "=" + refused + "\r\n" +
                         "downloads.example.lan=" + contract + "\r\n" +
                         "[Downloads]\r\nStallSeconds=2\r\n");
        reinstallHost();
    }

    std::string site(const std::string& path) const {
        return "http://127.0.0.1:" + std::to_string(contractPort_) + path;
    }
    std::string refusedSite(const std::string& path) const {
        return "http://127.0.0.1:" + std::to_string(refusedPort_) + path;
    }
    // A new empty folder of the test's folder.
    std::string folder(const std::string& name) {
        const std::string f = at(name);
        files().makeSureDirectoryPathExists(f + "\\");
        return f;
    }

    // The request log's fields of the request whose query is `query`; waits a
    // little, as the server may log a request after answering it.
    std::vector<std::string> loggedRequest(const std::string& query) {
        for (int attempt = 0; attempt < 50; ++attempt) {
            std::ifstream log(env().testerPath(sitesDir_ + "/requests.log"));
            for (std::string line; std::getline(log, line);) {
                std::vector<std::string> fields;
                std::istringstream in(line);
                for (std::string f; std::getline(in, f, '\t');) fields.push_back(f);
                if (fields.size() >= 5 && fields[4] == query) return fields;
            }
            // Real time: the simulated machine's sleeps take none.
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
        return {};
    }

    std::string sitesDir_;
    int contractPort_ = 0, refusedPort_ = 0;
};

TEST_F(Downloads, AFileArrivesWholeOrNothingIsLeft) {
    const std::string data = dataBin();
    struct Case {
        const char* name;
        std::string url;
        const std::string* body;  // null: the transfer fails
        const char* status;       // the download object's status text on failure
        bool urlDownloadToo;      // also through URLDownloadToFile
        const char* reason = "";  // the download object's reason, where it names an HTTP answer
    };
    const Case cases[] = {
        {"hello", site("/files/hello.txt"), &kHello, "", true},
        {"data", site("/files/data.bin"), &data, "", true},
        {"missing", site("/files/missing.txt"), nullptr, "404", true, "HTTP 404 Not Found"},
        {"broken", site("/files/broken.txt"), nullptr, "500", true, "HTTP 500 Internal Server Error"},
        {"reset", site("/files/reset.bin"), nullptr, "200", true},
        {"refused", refusedSite("/never-served.txt"), nullptr, "0", true},
        // The system's URL download knows neither the stand-ins' stall limit nor their host map.
        {"stall", site("/files/stall.bin"), nullptr, "200", false},
        {"unmapped", "http://elsewhere.example.lan/files/hello.txt", nullptr, "0", false},
    };
    for (Channel channel : {Channel::DownloadLibrary, Channel::UrlDownload, Channel::JobObject}) {
        for (const Case& c : cases) {
            if (channel == Channel::UrlDownload && !c.urlDownloadToo) continue;
            const std::string what = std::string(nameOf(channel)) + " " + c.name;
            const std::string dir = folder(std::string(nameOf(channel)) + "-" + c.name);
            const std::string destination = dir + "\\" + c.name + ".dat";
            // A complete download replaces an older (for hello, longer) file.
            if (c.body) files().writeAll(destination, "an older, longer version of the file\r\n");
            Outcome o = fetch(channel, c.url, destination);
            EXPECT_EQ(c.body != nullptr, o.ok) << what;
            if (c.body) {
                EXPECT_EQ(*c.body, files().readAll(destination)) << what;
                EXPECT_EQ(std::vector<std::string>{std::string(c.name) + ".dat"}, files().listFiles(dir)) << what;
            } else {
                EXPECT_FALSE(files().fileExists(destination)) << what;
                // No temporary file either.
                EXPECT_EQ(std::vector<std::string>{}, files().listFiles(dir)) << what;
            }
            // An HTTP answer without the whole file. A refused connection has no
            // one number: Wine says download failure, the simulated machine cannot connect.
            if (channel == Channel::UrlDownload && !c.body && std::string(c.status) != "0") {
                EXPECT_EQ(inet::DownloadFailure, o.result) << what;
            }
            if (channel != Channel::JobObject) continue;
            if (c.body) {
                EXPECT_EQ("", o.status) << what;
                EXPECT_EQ("", o.reason) << what;
                EXPECT_EQ("", o.failedUrl) << what;
            } else {
                EXPECT_EQ(c.status, o.status) << what;
                EXPECT_FALSE(o.reason.empty()) << what;
                if (*c.reason) {
                    EXPECT_EQ(c.reason, o.reason) << what;
                }
                EXPECT_EQ(c.url, o.failedUrl) << what;
            }
        }
    }
}

// One rule for redirects on every channel: at most five are followed; the
// download object names where they led.
TEST_F(Downloads, RedirectsAreFollowedFiveDeep) {
    struct Case {
        const char* name;
        std::string path;
        bool ok;
        std::string finalUrl;  // the download object's last output after a success
        const char* reason;    // its reason after a failure
    };
    const Case cases[] = {
        {"one", "/r/one", true, site("/files/hello.txt"), ""},
        {"five", "/r/five", true, site("/files/hello.txt"), ""},
        {"none", "/files/hello.txt", true, "", ""},
        // A relative Location whose query holds an address is still relative.
        {"query", "/r/query", true, site("/files/hello.txt?from=https://cdn.example/x"), ""},
        // The system's URL download has a limit of its own: Wine's follows a
        // sixth redirect and never ends a loop.
        {"six", "/r/six", false, "", "more than 5 redirects, the last to "},
        {"loop", "/r/loop", false, "", "more than 5 redirects, the last to "},
    };
    for (Channel channel : {Channel::DownloadLibrary, Channel::UrlDownload, Channel::JobObject}) {
        for (const Case& c : cases) {
            if (channel == Channel::UrlDownload && !c.ok) continue;
            const std::string what = std::string(nameOf(channel)) + " " + c.name;
            const std::string dir = folder(std::string(nameOf(channel)) + "-redirect-" + c.name);
            Outcome o = fetch(channel, site(c.path), dir + "\\hello.txt");
            EXPECT_EQ(c.ok, o.ok) << what;
            EXPECT_EQ(c.ok ? std::vector<std::string>{"hello.txt"} : std::vector<std::string>{}, files().listFiles(dir))
                << what;
            if (channel != Channel::JobObject) continue;
            if (c.ok) {
                EXPECT_EQ(c.finalUrl, o.failedUrl) << what;
            } else {
                EXPECT_EQ(0u, o.reason.rfind(c.reason, 0)) << what << ": " << o.reason;
                EXPECT_EQ("302", o.status) << what;
            }
        }
    }
}

// HTTPS from the sites, trusted through the test authority's root; a
// certificate for another name, and a redirect from https to http, refused.
TEST_F(Downloads, HttpsIsTrustedThroughTheMachinesRootsOnly) {
    const contract::SitesServer sites = contract::findSitesServer(env());
    const int secure = sites.ports.count("secure") ? sites.ports.at("secure") : 0;
    const int misnamed = sites.ports.count("misnamed") ? sites.ports.at("misnamed") : 0;
    ASSERT_GT(secure, 0) << "no https site in the ports file";
    ASSERT_GT(misnamed, 0);
    const std::string https = "https://127.0.0.1:" + std::to_string(secure);
    {
        // Absolute Locations need the ports of this run: the server reads its faults file again.
        std::ofstream faults(env().testerPath(sitesDir_ + "/faults.txt"), std::ios::app);
        faults << "secure /r/downgrade redirect " << site("/files/hello.txt") << "\n"
               << "contract /r/upgrade redirect " << https << "/files/hello.txt\n";
    }
    const std::string contract = "127.0.0.1:" + std::to_string(contractPort_);
    std::string network = "[Network]\r\n" + contract + "=" + contract + "\r\n";
    for (int port : {secure, misnamed})
        network += "127.0.0.1:" + std::to_string(port) + "=127.0.0.1:" + std::to_string(port) + "\r\n";
    env().setNetwork(network + "[Downloads]\r\nStallSeconds=2\r\n");
    env().trustRoot(env().testerPath(sitesDir_ + "/authority/ca.pem"));
    reinstallHost();
    struct Case {
        const char* name;
        std::string url;
        bool ok;
        std::string reason;  // the download object's, after a failure
    };
    const Case cases[] = {
        {"secure", https + "/files/hello.txt", true, ""},
        {"upgrade", site("/r/upgrade"), true, ""},
        {"misnamed", "https://127.0.0.1:" + std::to_string(misnamed) + "/files/hello.txt", false,
         "the certificate of 127.0.0.1 names another host"},
        // The system's URL download has its own rule: Wine's follows this one.
        {"downgrade", https + "/r/downgrade", false, "redirect from https to http refused: " + site("/files/hello.txt")},
    };
    for (Channel channel : {Channel::DownloadLibrary, Channel::UrlDownload, Channel::JobObject}) {
        for (const Case& c : cases) {
            if (channel == Channel::UrlDownload && std::string(c.name) == "downgrade") continue;
            const std::string what = std::string(nameOf(channel)) + " " + c.name;
            const std::string dir = folder(std::string(nameOf(channel)) + "-tls-" + c.name);
            Outcome o = fetch(channel, c.url, dir + "\\hello.txt");
            EXPECT_EQ(c.ok, o.ok) << what << ": " << o.reason;
            if (c.ok && o.ok) {
                EXPECT_EQ(kHello, files().readAll(dir + "\\hello.txt")) << what;
            } else if (channel == Channel::JobObject) {
                EXPECT_EQ(c.reason, o.reason) << what;
            }
        }
    }
}

// The download object stops a body longer than it was told to expect.
TEST_F(Downloads, TheDownloadObjectStopsABodyPastItsSize) {
    const std::string dir = folder("limited");
    Outcome over = fetchWithJob(site("/files/data.bin"), dir + "\\data.bin", 99999);
    EXPECT_FALSE(over.ok);
    EXPECT_EQ("more than 99999 bytes: stopped", over.reason);
    EXPECT_EQ(std::vector<std::string>{}, files().listFiles(dir));
    Outcome exact = fetchWithJob(site("/files/data.bin"), dir + "\\data.bin", 100000);
    EXPECT_TRUE(exact.ok) << exact.reason;
    EXPECT_EQ(dataBin(), files().readAll(dir + "\\data.bin"));
}

TEST_F(Downloads, AMappedHostIsReachedUnderItsOwnName) {
    for (Channel channel : {Channel::DownloadLibrary, Channel::JobObject}) {
        const std::string query = std::string("mapped-") + nameOf(channel);
        const std::string dir = folder(nameOf(channel));
        Outcome o = fetch(channel, "http://downloads.example.lan/files/hello.txt?" + query, dir + "\\hello.txt");
        EXPECT_TRUE(o.ok) << nameOf(channel);
        EXPECT_EQ(kHello, files().readAll(dir + "\\hello.txt")) << nameOf(channel);
        // site, method, Host header, path, query, status, bytes
        const std::vector<std::string> expected = {"contract", "GET", "downloads.example.lan", "/files/hello.txt",
                                                   query, "200", std::to_string(kHello.size())};
        EXPECT_EQ(expected, loggedRequest(query)) << nameOf(channel);
    }
}

TEST_F(Downloads, TheDownloadLibraryNumbersItsDownloadsAndKeepsTheirOutcome) {
    const std::string dir = folder("library");
    EXPECT_EQ(0, maker().asyncDownloadFile(site("/files/hello.txt"), at("nofolder\\hello.txt")));
    EXPECT_EQ(0, maker().asyncDownloadFile("", dir + "\\hello.txt"));
    EXPECT_EQ(0, maker().asyncDownloadFile(site("/files/hello.txt"), ""));

    const int32_t job = maker().asyncDownloadFile(site("/files/data.bin"), dir + "\\data.bin");
    ASSERT_GT(job, 0);
    int64_t bytes = -1;
    EXPECT_EQ(kdowfile::Completed, outcomeOf(job, bytes));
    EXPECT_EQ(100000, bytes);
    // Asked again, the same answer.
    bytes = -1;
    EXPECT_EQ(kdowfile::Completed, maker().getDownloadFinalStatus(job, bytes));
    EXPECT_EQ(100000, bytes);
    EXPECT_EQ(dataBin(), files().readAll(dir + "\\data.bin"));

    const int32_t second = maker().asyncDownloadFile(site("/files/hello.txt"), dir + "\\hello.txt");
    EXPECT_GT(second, job);
    EXPECT_EQ(kdowfile::UnknownJob, maker().getDownloadFinalStatus(second + 1000, bytes));
    EXPECT_EQ(kdowfile::Completed, outcomeOf(second, bytes));
    EXPECT_EQ((std::vector<std::string>{"data.bin", "hello.txt"}), files().listFiles(dir));
}

class Archives : public Downloads {
protected:
    // The archive of the sites' files, downloaded as the program does.
    std::string download(const std::string& name) {
        const std::string path = at(name);
        Outcome o = fetchWithJob(site("/files/" + name), path);
        EXPECT_TRUE(o.ok) << name << ": " << o.reason;
        return path;
    }
};

TEST_F(Archives, ADownloadedArchiveUnpacksIntoItsFolder) {
    const std::string archive = download("wblist.zip");
    Object zip = automation().createObject("ChilkatZip2.Chilkatzip2");
    EXPECT_EQ(1, zip.call("OpenZip", archive).toLong());
    EXPECT_EQ("", zip.get("LastErrorText").toString());
    EXPECT_EQ(2, zip.call("Unzip", at("Temp")).toLong());
    EXPECT_EQ("", zip.get("LastErrorText").toString());
    zip.call("CloseZip");
    EXPECT_EQ(blackList(), files().readAll(at("Temp\\PatchBlackList.txt")));
    EXPECT_EQ(kBlackListDR, files().readAll(at("Temp\\PatchBlackListDR.txt")));
    EXPECT_EQ((std::vector<std::string>{"PatchBlackList.txt", "PatchBlackListDR.txt"}), files().listFiles(at("Temp")));
}

TEST_F(Archives, AnEntryEscapingItsFolderUnpacksNothing) {
    const std::string archive = download("escape.zip");
    Object zip = automation().createObject("ChilkatZip2.Chilkatzip2");
    ASSERT_EQ(1, zip.call("OpenZip", archive).toLong());
    EXPECT_EQ(-1, zip.call("Unzip", at("out")).toLong());
    const std::string why = zip.get("LastErrorText").toString();
    EXPECT_NE(std::string::npos, why.find("../escaped.txt")) << why;
    zip.call("CloseZip");
    EXPECT_FALSE(files().folderExists(at("out")));
    EXPECT_FALSE(files().fileExists(at("escaped.txt")));
    EXPECT_EQ(std::vector<std::string>{"escape.zip"}, files().listFiles(env().folder()));
}

TEST_F(Archives, WhatIsNotAnArchiveDoesNotOpen) {
    files().writeAll(at("hello.txt"), kHello);
    Object zip = automation().createObject("ChilkatZip2.Chilkatzip2");
    EXPECT_EQ(-1, zip.call("Unzip", at("out")).toLong()) << "nothing open";
    EXPECT_FALSE(zip.get("LastErrorText").toString().empty());
    for (const std::string& path : {at("missing.zip"), at("hello.txt")}) {
        EXPECT_EQ(0, zip.call("OpenZip", path).toLong()) << path;
        EXPECT_FALSE(zip.get("LastErrorText").toString().empty()) << path;
    }
    zip.call("CloseZip");
    EXPECT_FALSE(files().folderExists(at("out")));
}

class MakerLibraries : public ContractTest {};

TEST_F(MakerLibraries, ChecksumsAreTheFilesMd5WholeOrBlockWise) {
    files().writeAll(at("data.bin"), dataBin());
    files().writeAll(at("empty.txt"), "");
    files().writeAll(at("hello.txt"), kHello);
    struct Case {
        std::string path;
        bool ok;
        const char* md5;
    };
    const Case cases[] = {
        {at("data.bin"), true, "8ed940bff41fc9a1ad4e33bc11f7d2ca"},  // more than one block
        {at("hello.txt"), true, "18fa6e867cfa4409ec6daa3cc2d16e0c"},
        {at("empty.txt"), true, "d41d8cd98f00b204e9800998ecf8427e"},
        {at("missing.bin"), false, nullptr},
        {env().folder(), false, nullptr},
    };
    // The text matters only when the call succeeded.
    for (const Case& c : cases) {
        std::string whole, blocks;
        EXPECT_EQ(c.ok, maker().kGetMD5(c.path, whole)) << c.path;
        EXPECT_EQ(c.ok, maker().kGetMD5WBlock(c.path, blocks)) << c.path;
        if (!c.ok) continue;
        EXPECT_EQ(c.md5, whole) << c.path;
        EXPECT_EQ(c.md5, blocks) << c.path;
    }
}

TEST_F(MakerLibraries, AMissingLibraryIsFileNotFound) {
    files().writeAll(at("hello.txt"), kHello);
    struct Case {
        const char* library;
        std::function<void()> call;
    };
    std::string md5;
    int64_t bytes = 0;
    const Case cases[] = {
        {"KDowFile.dll", [&] { maker().asyncDownloadFile("http://127.0.0.1:1/x", at("x")); }},
        {"KDowFile.dll", [&] { maker().getDownloadFinalStatus(1, bytes); }},
        {"KGnMD5.dll", [&] { maker().kGetMD5(at("hello.txt"), md5); }},
        {"KGnMD5.dll", [&] { maker().kGetMD5WBlock(at("hello.txt"), md5); }},
    };
    for (const Case& c : cases) {
        env().loseMakerLibrary(c.library);
        reinstallHost();
        ComError e = errorOf(c.call);
        EXPECT_EQ(err::FileNotFound, e.number()) << c.library;
        EXPECT_EQ(std::string("File not found: ") + c.library, e.description()) << c.library;
    }
}

}  // namespace

// The sites server seen from a real HTTP client (libcurl): files, faults,
// the request log, posts and the proxy.
#include <curl/curl.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "sites/sites_server.h"
#include "standins/string_cipher.h"

namespace fs = std::filesystem;
using sites::Fault;
using sites::SitesServer;

namespace {

struct Reply {
    CURLcode code = CURLE_OK;
    long status = 0;
    std::string body;
    std::string headers;
};

size_t append(char* data, size_t size, size_t n, void* out) {
    static_cast<std::string*>(out)->append(data, size * n);
    return size * n;
}

size_t appendHeader(char* data, size_t size, size_t n, void* out) {
    auto* r = static_cast<std::pair<Reply*, std::atomic<bool>*>*>(out);
    r->first->headers.append(data, size * n);
    if (r->second && size * n == 2) *r->second = true;  // the blank line ending the headers
    return size * n;
}

// One request on a fresh connection; `proxy` empty goes straight to the site.
Reply fetch(const std::string& url, std::optional<std::string> post = {}, bool head = false,
            const std::string& proxy = "", const std::string& proxyUserPwd = "",
            std::atomic<bool>* gotHeaders = nullptr) {
    Reply r;
    std::pair<Reply*, std::atomic<bool>*> headerSink{&r, gotHeaders};
    CURL* c = curl_easy_init();
    curl_easy_setopt(c, CURLOPT_URL, url.c_str());
    curl_easy_setopt(c, CURLOPT_PATH_AS_IS, 1L);  // let "/../" reach the server
    curl_easy_setopt(c, CURLOPT_PROXY, proxy.c_str());  // never one from the environment
    curl_easy_setopt(c, CURLOPT_NOPROXY, "");
    if (!proxyUserPwd.empty()) curl_easy_setopt(c, CURLOPT_PROXYUSERPWD, proxyUserPwd.c_str());
    if (post) curl_easy_setopt(c, CURLOPT_POSTFIELDS, post->c_str());
    if (head) curl_easy_setopt(c, CURLOPT_NOBODY, 1L);
    curl_easy_setopt(c, CURLOPT_WRITEFUNCTION, append);
    curl_easy_setopt(c, CURLOPT_WRITEDATA, &r.body);
    curl_easy_setopt(c, CURLOPT_HEADERFUNCTION, appendHeader);
    curl_easy_setopt(c, CURLOPT_HEADERDATA, &headerSink);
    r.code = curl_easy_perform(c);
    curl_easy_getinfo(c, CURLINFO_RESPONSE_CODE, &r.status);
    curl_easy_cleanup(c);
    return r;
}

std::string pattern(size_t n) {
    std::string s(n, '\0');
    for (size_t i = 0; i < n; ++i) s[i] = static_cast<char>('a' + i % 26);
    return s;
}

void write(const fs::path& p, const std::string& text) {
    fs::create_directories(p.parent_path());
    std::ofstream(p, std::ios::binary) << text;
}

class Sites : public ::testing::Test {
protected:
    void SetUp() override {
        root = fs::temp_directory_path() /
               ("kpm-sites-" + std::to_string(::getpid()) + "-" +
                ::testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::remove_all(root);
        write(root / "files/dir/small.bin", small);
        write(root / "files/big.bin", big);
        write(root / "secret.txt", "top secret");
        write(root / "mgmt/answer.xml", "<answer/>");
    }
    void TearDown() override { fs::remove_all(root); }

    sites::Config config() const {
        sites::Config c;
        c.sites = {{"files", root / "files", 0, {}}, {"mgmt", root / "mgmt", 0, {}}};
        return c;
    }
    std::string url(const SitesServer& s, const std::string& site, const std::string& path) const {
        return "http://127.0.0.1:" + std::to_string(s.port(site)) + path;
    }

    fs::path root;
    const std::string small = pattern(40);
    const std::string big = pattern(100000);
};

TEST_F(Sites, FaultsShapeTheAnswerAndTheLogTellsWhatWasSent) {
    SitesServer server(config());
    server.start();
    struct Expect {
        CURLcode code;
        long status;
        size_t bytes;  // received and logged
    };
    struct Case {
        const char* path;
        std::optional<Fault> fault;
        std::vector<Expect> replies;  // one request each
        bool head = false;
    } cases[] = {
        {"/dir/small.bin", {}, {{CURLE_OK, 200, 40}}},
        {"/dir/small.bin", {}, {{CURLE_OK, 200, 0}}, true},
        {"/dir/none.bin", {}, {{CURLE_OK, 404, 0}}},
        {"/../secret.txt", {}, {{CURLE_OK, 404, 0}}},
        {"/%2e%2e/secret.txt", {}, {{CURLE_OK, 404, 0}}},
        {"/%2Fetc/passwd", {}, {{CURLE_OK, 404, 0}}},
        {"/dir%5C..%5C..%5Csecret.txt", {}, {{CURLE_OK, 404, 0}}},
        {"/dir/small.bin", Fault::withStatus(500), {{CURLE_OK, 500, 0}}},
        {"/big.bin", Fault::reset(1000), {{CURLE_PARTIAL_FILE, 200, 1000}}},
        {"/dir/small.bin", Fault::stall(1), {{CURLE_OK, 200, 40}}},
        {"/dir/small.bin", Fault::slow(400), {{CURLE_OK, 200, 40}}},
        {"/dir/small.bin", Fault::withStatus(503, 2), {{CURLE_OK, 503, 0}, {CURLE_OK, 503, 0}, {CURLE_OK, 200, 40}}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.path);
        server.clearFaults();
        if (c.fault) server.setFault("files", c.fault->kind == Fault::Kind::Status ? "*" : c.path, *c.fault);
        auto before = server.requests().size();
        for (const auto& e : c.replies) {
            auto r = fetch(url(server, "files", c.path), {}, c.head);
            EXPECT_EQ(r.code, e.code);
            EXPECT_EQ(r.status, e.status);
            const std::string& file = std::string_view(c.path) == "/big.bin" ? big : small;
            if (e.status == 200) {
                EXPECT_EQ(r.body, file.substr(0, e.bytes));
            }
            EXPECT_EQ(r.body.find("top secret"), std::string::npos);
            if (c.head) {
                EXPECT_NE(r.headers.find("Content-Length: 40"), std::string::npos) << r.headers;
            }
        }
        auto log = server.requests();
        ASSERT_EQ(log.size(), before + c.replies.size());
        for (size_t i = 0; i < c.replies.size(); ++i) {
            EXPECT_EQ(log[before + i].status, c.replies[i].status);
            if (c.replies[i].status == 200) {
                EXPECT_EQ(log[before + i].bytes, c.replies[i].bytes);
            }
        }
    }
}

TEST_F(Sites, LogLinesArePlainTabSeparatedFields) {
    auto c = config();
    c.logFile = root / "requests.log";
    SitesServer server(c);
    server.start();
    server.setFault("files", "/big.bin", Fault::reset(10));
    fetch(url(server, "files", "/dir/small.bin?a=1&b=%20x"));
    fetch(url(server, "files", "/big.bin"));
    fetch(url(server, "mgmt", "/up/status.asp?id=7"), "<status/>");
    auto host = [&](const char* site) { return "127.0.0.1:" + std::to_string(server.port(site)); };
    std::vector<std::string> want = {
        "files\tGET\t" + host("files") + "\t/dir/small.bin\ta=1&b=%20x\t200\t40",
        "files\tGET\t" + host("files") + "\t/big.bin\t\t200\t10",
        "mgmt\tPOST\t" + host("mgmt") + "\t/up/status.asp\tid=7\t200\t0",
    };
    std::ifstream in(c.logFile);
    std::vector<std::string> lines;
    for (std::string l; std::getline(in, l);) lines.push_back(l);
    EXPECT_EQ(lines, want);
    std::vector<std::string> kept;
    for (const auto& r : server.requests()) kept.push_back(r.line());
    EXPECT_EQ(kept, want);
}

TEST_F(Sites, PostsAreKeptDecryptedAndAnsweredByPathOrDocumentKind) {
    auto c = config();
    c.postsFolder = root / "posts";
    write(root / "mgmt/wppthmsbbllist.txt", "KB100,KB200");
    write(root / "mgmt/wppthdwldinfo.txt", "1");
    SitesServer server(c);
    server.start();
    const std::string list = "<wppthmsbbllist><regid>R1</regid></wppthmsbbllist>";
    const std::string info = "<wppthdwldinfo><errdesc> a<b & c</errdesc></wppthdwldinfo>";
    const std::string declared = "<?xml version=\"1.0\"?><!-- r -->" + list;
    auto cdata = [](const std::string& root, const std::string& doc) {
        return "<" + root + "><![CDATA[" + standins::encryptString(doc) + "]]></" + root + ">";
    };
    struct Case {
        std::string target, body;
        std::optional<Fault> fault;
        std::string answer, kind, document;
    } cases[] = {
        {"/up/status.asp?id=7", "<status>1</status>", {}, "", "status", "<status>1</status>"},
        {"/answer.xml", "x", {}, "<answer/>", "", "x"},  // a file at the path comes first
        {"/tfr_wppthmsbbllist.asp", declared, {}, "KB100,KB200", "wppthmsbbllist", declared},
        {"/tfr_wppthmsbbllist.asp?ec=256", "<wppthmsbbllist>" + cdata("wppthmsbbllist", list) + "</wppthmsbbllist>", {},
         "KB100,KB200", "wppthmsbbllist", list},
        {"/tfr_wppthdwldinfo.asp?mmid=M1&ec=256", cdata("wppthdwldinfo", info), {}, "1", "wppthdwldinfo", info},
        {"/tfr_x.asp?ec=256", standins::encryptString(info), {}, "1", "wppthdwldinfo", info},  // no outer element
        {"/tfr_x.asp?ec=2560", "<a><![CDATA[%%]]></a>", {}, "", "a", "<a><![CDATA[%%]]></a>"},
        {"/tfr_x.asp?ec=256", "<a><![CDATA[%%]]></a>", {}, "", "a", ""},  // does not decrypt
        {"/tfr_wppthdwldinfo.asp", info, Fault::empty(), "", "wppthdwldinfo", info},
        {"/tfr_wppthdwldinfo.asp", info, Fault::withStatus(500), "", "wppthdwldinfo", info},
    };
    size_t n = 0;
    for (const auto& k : cases) {
        SCOPED_TRACE(k.target);
        server.clearFaults();
        if (k.fault) server.setFault("mgmt", "*", *k.fault);
        auto r = fetch(url(server, "mgmt", k.target), k.body);
        EXPECT_EQ(r.status, k.fault && k.fault->kind == Fault::Kind::Status ? 500 : 200);
        if (r.status == 200) {
            EXPECT_EQ(r.body, k.answer);
        }
        auto posts = server.posts();
        ASSERT_EQ(posts.size(), ++n);
        const auto& p = posts.back();
        EXPECT_EQ(p.site + " " + p.path + (p.query.empty() ? "" : "?" + p.query), "mgmt " + k.target);
        EXPECT_EQ(p.body, k.body);
        EXPECT_EQ(p.kind, k.kind);
        EXPECT_EQ(p.document, k.document);
    }
    std::ifstream saved(c.postsFolder / "0001-mgmt-up_status.asp");
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(saved), {}), "<status>1</status>");

    // Started again on the same folder, it numbers on: nothing recorded is written over.
    server.stop();
    SitesServer again(c);
    again.start();
    fetch(url(again, "mgmt", "/up/status.asp"), "<status>2</status>");
    const std::string next = (n < 9 ? "000" : "00") + std::to_string(n + 1) + "-mgmt-up_status.asp";
    std::ifstream later(c.postsFolder / next);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(later), {}), "<status>2</status>") << next;
    std::ifstream first(c.postsFolder / "0001-mgmt-up_status.asp");
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(first), {}), "<status>1</status>");
}

TEST_F(Sites, ProxyAsksForCredentialsAndReachesLoopbackOnly) {
    auto c = config();
    c.proxy = sites::ProxyConfig{0, "agent:s3cret", {}};
    SitesServer server(c);
    server.start();
    std::string proxy = "http://127.0.0.1:" + std::to_string(server.port("proxy"));
    std::string site = url(server, "files", "/dir/small.bin");
    struct Case {
        std::string url, credentials;
        long status;
        std::string bodyHas;
    } cases[] = {
        {site, "", 407, "authentication required"},
        {site, "agent:wrong", 407, "authentication required"},
        {site, "agent:s3cret", 200, small},
        {"http://localhost:" + std::to_string(server.port("mgmt")) + "/answer.xml", "agent:s3cret", 200, "<answer/>"},
        {"http://example.com/x", "agent:s3cret", 502, "loopback only"},
    };
    for (const auto& k : cases) {
        SCOPED_TRACE(k.url + " " + k.credentials);
        auto r = fetch(k.url, {}, false, proxy, k.credentials);
        EXPECT_EQ(r.code, CURLE_OK);
        EXPECT_EQ(r.status, k.status);
        EXPECT_NE(r.body.find(k.bodyHas), std::string::npos) << r.body;
        if (k.status == 407) {
            EXPECT_NE(r.headers.find("Proxy-Authenticate: Basic realm=\"kpm-sites\""), std::string::npos);
        }
    }
    auto log = server.requests();
    ASSERT_EQ(log.size(), 7u);  // five through the proxy, two of them passed on to a site
    EXPECT_EQ(log[3].line(),
              "proxy\tGET\t127.0.0.1:" + std::to_string(server.port("files")) + "\t" + site + "\t\t200\t40");
}

TEST_F(Sites, FaultsFileIsFollowedWhileRunning) {
    auto c = config();
    c.faultsFile = root / "faults";
    auto setFaults = [&](const std::string& text) {  // whole, as scripts should
        write(root / "faults.tmp", text);
        fs::rename(root / "faults.tmp", c.faultsFile);
    };
    setFaults("# first one fails\nfiles /dir/small.bin 404 times=1\n");
    SitesServer server(c);
    server.start();
    auto get = [&] { return fetch(url(server, "files", "/dir/small.bin")); };
    EXPECT_EQ(get().status, 404);
    EXPECT_EQ(get().status, 200);
    setFaults("files * 500\n");
    EXPECT_EQ(get().status, 500);
    // Refusing has no request to ride on: the server notices the file by itself.
    auto eventually = [&](CURLcode code) {
        auto until = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (get().code != code && std::chrono::steady_clock::now() < until)
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        return get().code;
    };
    setFaults("files * refuse\n");
    EXPECT_EQ(eventually(CURLE_COULDNT_CONNECT), CURLE_COULDNT_CONNECT);
    fs::remove(c.faultsFile);
    EXPECT_EQ(eventually(CURLE_OK), CURLE_OK);
    EXPECT_EQ(get().body, small);
}

TEST_F(Sites, StopCutsOffAStalledAnswer) {
    auto server = std::make_unique<SitesServer>(config());
    server->start();
    server->setFault("files", "*", Fault::stall(30));
    std::atomic<bool> headers{false};
    Reply reply;
    std::thread client([&] { reply = fetch(url(*server, "files", "/big.bin"), {}, false, "", "", &headers); });
    while (!headers) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    server->stop();
    client.join();
    EXPECT_NE(reply.code, CURLE_OK);
    EXPECT_EQ(reply.body, "");
    ASSERT_EQ(server->requests().size(), 1u);
    EXPECT_EQ(server->requests()[0].bytes, 0u);
}

}  // namespace

// An HTTPS site answers a client that trusts the test authority, for the names
// its certificate carries only; a second server reuses the authority it finds.
TEST_F(Sites, HttpsSiteIsTrustedThroughTheTestAuthorityForItsNamesOnly) {
    auto c = config();
    c.sites[0].tlsNames = {"vendor.example", "cdn.vendor.example"};
    c.authority = root / "authority";
    SitesServer server(c);
    server.start();
    const int port = server.port("files");
    auto get = [&](const std::string& host, const fs::path& roots) {
        Reply r;
        CURL* curl = curl_easy_init();
        const std::string url = "https://" + host + "/dir/small.bin";
        const std::string connect = host + ":443:127.0.0.1:" + std::to_string(port);
        curl_slist* to = curl_slist_append(nullptr, connect.c_str());
        curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
        curl_easy_setopt(curl, CURLOPT_CONNECT_TO, to);
        curl_easy_setopt(curl, CURLOPT_PROXY, "");
        curl_easy_setopt(curl, CURLOPT_CAINFO, roots.c_str());
        curl_easy_setopt(curl, CURLOPT_CAPATH, nullptr);
        curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, append);
        curl_easy_setopt(curl, CURLOPT_WRITEDATA, &r.body);
        r.code = curl_easy_perform(curl);
        curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &r.status);
        curl_easy_cleanup(curl);
        curl_slist_free_all(to);
        return r;
    };
    const fs::path ca = root / "authority" / "ca.pem";
    auto first = get("cdn.vendor.example", ca);
    EXPECT_EQ(first.code, CURLE_OK);
    EXPECT_EQ(first.body, small);
    EXPECT_EQ(get("other.example", ca).code, CURLE_PEER_FAILED_VERIFICATION);
    write(root / "stranger.pem", "");
    EXPECT_NE(get("vendor.example", root / "stranger.pem").code, CURLE_OK);
    // Plain HTTP to an HTTPS site is no answer.
    EXPECT_NE(fetch("http://127.0.0.1:" + std::to_string(port) + "/dir/small.bin").status, 200);
    server.stop();

    const auto madeAt = fs::last_write_time(ca);
    SitesServer again(c);
    again.start();
    EXPECT_EQ(fs::last_write_time(ca), madeAt);
}

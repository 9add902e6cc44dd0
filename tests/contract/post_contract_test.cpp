// The status posts' components: the maker's string-encryption class, created
// by class identifier and called through its interface's first method, and
// the posting object "kWbPost.WebPost" against the loopback sites server
// (whose "contract" site answers a "wppthmsbbllist" document from its
// wppthmsbbllist.txt).
#include <string>

#include "contract_env.h"
#include "platform/errors.h"
#include "platform/host.h"
#include "standins/string_cipher.h"

namespace {

using namespace platform;
using contract::ContractTest;
using contract::errorOf;

const char* const kCipherClsid = "{88565cbb-406b-431f-be79-66f8e3f67490}";
const char* const kCipherIid = "{ACCB0845-EFBD-44F9-BF6B-025DDF631166}";
const std::string kDocument = "<wppthdwldinfo><errdesc> a<b & c]]></errdesc></wppthdwldinfo>";

TEST_F(ContractTest, TheStringCipherClassEncryptsThroughItsFirstMethod) {
    Object cipher = automation().createByClsid(kCipherClsid);
    const std::string encrypted = automation().callFirstMethod(cipher, kCipherIid, kDocument);
    EXPECT_EQ(encrypted, standins::encryptString(kDocument));
    EXPECT_EQ(standins::decryptString(encrypted).value_or("?"), kDocument);
    EXPECT_EQ(cipher.call("EncryptString", kDocument).toString(), encrypted);  // the same method, late-bound
    EXPECT_EQ(errorOf([] { automation().createByClsid("{6A4B1C2D-0000-4000-8000-00000000F00D}"); }).number(),
              err::CannotCreateObject);
    EXPECT_EQ(errorOf([&] { automation().callFirstMethod(cipher, "{6A4B1C2D-0000-4000-8000-00000000F00D}", "x"); })
                  .number(),
              err::NoExpectedInterface);
}

TEST_F(ContractTest, ThePosterDeliversTheDocumentOrSaysWhyNot) {
    const contract::SitesServer sites = contract::findSitesServer(env());
    if (sites.ports.empty()) GTEST_SKIP() << sites.why;
    const std::string site = "127.0.0.1:" + std::to_string(sites.ports.at("contract"));
    const std::string refused = "127.0.0.1:" + std::to_string(sites.ports.at("refused"));
    env().setNetwork("[Network]\r\n" + site + "=" + site + "\r\n" + refused + "=" + refused + "\r\n" +
                     "manage.example.lan=" + site + "\r\n");
    reinstallHost();
    struct Case {
        std::string url, answer, number, description;
    } cases[] = {
        {"http://manage.example.lan/tfr_wppthmsbbllist.asp?ec=256", "KB5031354,KB5032189", "0", ""},
        {"http://" + site + "/files/hello.txt", "Hello from the sites server.\r\n", "0", ""},
        {"http://" + site + "/files/broken.txt", "", "500", "HTTP 500 Internal Server Error"},
        {"http://" + refused + "/x.asp", "", "12029", "cannot connect to 127.0.0.1:" + std::to_string(sites.ports.at("refused"))},
        {"http://nowhere.example.lan/x.asp", "", "12007", "host not found: nowhere.example.lan"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.url);
        Object poster = automation().createObject("kWbPost.WebPost");
        Variant xml("<wppthmsbbllist><regid>R1</regid></wppthmsbbllist>"), url(c.url), answer("stale"), number,
            description, source;
        poster.call("PostXMLString", ByRef{&xml}, false, ByRef{&url}, "", "", ByRef{&answer}, ByRef{&number},
                    ByRef{&description}, ByRef{&source});
        EXPECT_EQ(answer.toString(), c.answer);
        EXPECT_EQ(number.toString(), c.number);
        EXPECT_EQ(description.toString(), c.description);
        EXPECT_EQ(source.toString(), c.number == "0" ? "" : "kWbPost.WebPost");
        EXPECT_EQ(url.toString(), c.url);
    }
}

}  // namespace

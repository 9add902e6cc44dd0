// Text outside ASCII, as the program meets it on a Western European computer
// (code page 1252): its own ANSI text to and from UTF-16, upper case as names
// are compared, XML files in the encodings they declare, file names and
// registry names that are not ASCII. The same rows on the simulated machine
// and on Windows (Wine).
#include "contract_env.h"
#include "platform/automation.h"
#include "platform/files.h"
#include "platform/host.h"
#include "platform/registry.h"

namespace {

using namespace platform;
using contract::ContractTest;

class Text : public ContractTest {
protected:
    // The text of the document element of a file of these bytes, or "(refused)".
    std::string loadedText(const std::string& bytes) {
        files().writeAll(at("doc.xml"), bytes);
        Object doc = automation().createObject("MSXML2.DOMDocument");
        doc.put("async", false);
        if (!doc.call("load", at("doc.xml")).toBool()) return "(refused)";
        return doc.obj("documentElement").get("text").toString();
    }
};

TEST_F(Text, AnsiTextAndUtf16) {
    ASSERT_EQ(1252u, sys().codePage());
    // 0x80 is the euro sign, 0x9F "Ÿ"; 0x81 is undefined and reads as U+0081.
    EXPECT_EQ(u"caf\u00E9 \u20AC \u0178 \u0081", sys().toUtf16("caf\xE9 \x80 \x9F \x81"));
    struct Row {
        std::u16string wide;
        std::string ansi;
    };
    const Row rows[] = {
        {u"\u00C9diteur", "\xC9" "diteur"},
        {u"\u20AC", "\x80"},
        {u"\u03A9mega", "?mega"},  // Greek: not in 1252
        {u"a\uFF0Fb", "a?b"},       // a full-width solidus, never a '/'
        {u"\u0100", "?"},           // best fit would say 'A'
    };
    for (const auto& r : rows) EXPECT_EQ(r.ansi, sys().toAnsi(r.wide)) << r.ansi;
}

TEST_F(Text, UpperCaseAsNamesCompare) {
    struct Row {
        std::u16string in, out;
    };
    const Row rows[] = {
        {u"caf\u00E9", u"CAF\u00C9"},
        {u"\u00FF", u"\u0178"},              // ÿ to Ÿ, one code page position to another
        {u"\u00DF", u"\u00DF"},              // ß stays: one unit for one
        {u"\u03C9mega", u"\u03A9MEGA"},      // Greek
        {u"\u0433\u0443", u"\u0413\u0423"},  // Cyrillic
        {u"i", u"I"},                        // no Turkish rule
    };
    for (const auto& r : rows) EXPECT_EQ(r.out, sys().upcase(r.in));
}

TEST_F(Text, XmlFilesAreReadInTheEncodingTheyDeclare) {
    struct Row {
        const char* what;
        std::string bytes;
        std::string text;
    };
    const Row rows[] = {
        {"UTF-8", "<?xml version=\"1.0\" encoding=\"UTF-8\"?><a>\xC3\x89t\xC3\xA9</a>", "\xC9t\xE9"},
        {"no declaration", "<a>\xC3\xA9</a>", "\xE9"},
        {"UTF-8, a letter 1252 lacks", "<a>\xCE\xA9</a>", "?"},
        {"ISO-8859-1", "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><a>\xE9</a>", "\xE9"},
        {"windows-1252", "<?xml version=\"1.0\" encoding=\"windows-1252\"?><a>\x80</a>", "\x80"},
        {"byte order mark", "\xEF\xBB\xBF<a>\xC3\xA9</a>", "\xE9"},
        {"UTF-16, little-endian", std::string("\xFF\xFE<\0a\0>\0\xE9\0<\0/\0a\0>\0", 18), "\xE9"},
        {"UTF-16, big-endian", std::string("\xFE\xFF\0<\0a\0>\0\xE9\0<\0/\0a\0>", 18), "\xE9"},
        {"not UTF-8", "<?xml version=\"1.0\" encoding=\"UTF-8\"?><a>\xE9</a>", "(refused)"},
    };
    for (const auto& r : rows) EXPECT_EQ(r.text, loadedText(r.bytes)) << r.what;
    // A text the program passes in is its own ANSI text.
    Object doc = automation().createObject("MSXML2.DOMDocument");
    ASSERT_TRUE(doc.call("loadXML", "<a name=\"caf\xE9\">\xC9t\xE9</a>").toBool());
    EXPECT_EQ("caf\xE9", doc.obj("documentElement").call("getAttribute", "name").toString());
    EXPECT_EQ(1, doc.call("selectNodes", "/a[@name='caf\xE9']").toObject().get("length").toLong());
}

TEST_F(Text, FileNamesOutsideAsciiCaseNotCounting) {
    files().writeAll(at("\xC9" "diteur Setup.exe"), "x");
    EXPECT_TRUE(files().fileExists(at("\xE9" "DITEUR SETUP.EXE")));
    EXPECT_TRUE(files().findFirst(at("?diteur*.exe")));  // "?" is one character
    files().writeAll(at("\xE9" "DITEUR SETUP.EXE"), "yy");  // the same file
    EXPECT_EQ(std::vector<std::string>{"\xC9" "diteur Setup.exe"}, files().listFiles(env().folder()));
    EXPECT_EQ("yy", files().readAll(at("\xC9" "diteur Setup.exe")));
}

TEST_F(Text, RegistryNamesAndValuesOutsideAscii) {
    std::unique_ptr<RegKey> key, sub;
    ASSERT_EQ(regerr::Success, registry().createKey(Hive::CurrentUser, env().keyPath(), RegView::Default, key));
    ASSERT_EQ(regerr::Success, key->createSubKey("\xC9" "diteur", sub));
    ASSERT_EQ(regerr::Success, sub->setValue("Caf\xE9", RegValue::string("\xC9t\xE9 \x80")));
    std::string name;
    ASSERT_EQ(regerr::Success, key->enumSubKey(0, name));
    EXPECT_EQ("\xC9" "diteur", name);
    std::unique_ptr<RegKey> reopened;
    ASSERT_EQ(regerr::Success, registry().openKey(Hive::CurrentUser, env().keyPath() + "\\\xE9" "DITEUR",
                                                  regaccess::Read, RegView::Default, reopened));
    RegValue v;
    ASSERT_EQ(regerr::Success, reopened->queryValue("CAF\xC9", v));
    EXPECT_EQ("\xC9t\xE9 \x80", v.text());
}

}  // namespace

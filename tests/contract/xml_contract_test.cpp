// "MSXML2.DOMDocument" as the program reads schedule and web-post files: the
// node model by position, text values, attributes in document order, and
// what a document that does not parse leaves. Natively the simulated
// machine's DOM; under Wine, Wine's MSXML, an implementation nobody here wrote.
#include "contract_env.h"
#include "tppatch/catalogue.h"
#include "platform/automation.h"
#include "platform/errors.h"
#include "platform/files.h"

#include <functional>

namespace {

using namespace platform;
using contract::ContractTest;

class Xml : public ContractTest {
protected:
    Object load(const std::string& text) {
        Object doc = automation().createObject("MSXML2.DOMDocument");
        loaded = doc.call("loadXML", text).toBool();
        return doc;
    }
    bool loaded = false;
};

const char* kSchedule =
    "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>\r\n"
    "<!-- delivered by the management site -->\r\n"
    "<patchmanagement xmlns:x=\"urn:k\">\r\n"
    "  <autopatchdeploy>\r\n"
    "    <ScheduleType> 4 </ScheduleType>\r\n"
    "    <!-- a comment is a child too -->\r\n"
    "    <MonthDates></MonthDates>\r\n"
    "    <Window>from <b>16:00</b> to 17:00</Window>\r\n"
    "  </autopatchdeploy>\r\n"
    "  <x:fod first=\"NDATAPOST\" second=\"\" third=\"Windows 7\"/>\r\n"
    "  <autopatchdeploy><c>nested</c></autopatchdeploy>\r\n"
    "</patchmanagement>\r\n";

TEST_F(Xml, ChildrenByPositionAndTheirTextValues) {
    Object doc = load(kSchedule);
    ASSERT_TRUE(loaded);
    // The declaration and the comment are children of the document; blank text is not.
    EXPECT_EQ(3, doc.obj("childNodes").get("length").toLong());
    Object element = doc.call("getElementsByTagName", "autopatchdeploy").toObject().obj("item", 0);
    Object children = element.obj("childNodes");
    ASSERT_EQ(4, children.get("length").toLong());
    struct Case {
        int position;
        const char* text;
    };
    const Case cases[] = {
        {0, "4"},                    // the element's text, blanks at its edges dropped
        {2, ""},                     // an empty element
        {3, "from 16:00 to 17:00"},  // descendants' text joined
    };
    for (const auto& c : cases) {
        Object child = children.obj("item", c.position);
        EXPECT_EQ(c.text, child.get("nodeTypedValue").toString()) << c.position;
        EXPECT_EQ(c.text, child.get("text").toString()) << c.position;
    }
    EXPECT_EQ(" a comment is a child too ", children.obj("item", 1).get("nodeValue").toString());
    // A position past the end is Nothing; reading from Nothing is error 91.
    EXPECT_FALSE(children.get("item", 4).dispatch());
    EXPECT_EQ(err::ObjectVariableNotSet, contract::errorOf([&] { children.obj("item", 4).get("text"); }).number());
    // An element has no node value: Null, which is no text.
    EXPECT_TRUE(element.get("nodeValue").isNull());
}

TEST_F(Xml, AttributesByPositionAndNames) {
    Object doc = load(kSchedule);
    // Reached by position: the document's third child is the root element.
    Object fod = doc.obj("childNodes").obj("item", 2).obj("childNodes").obj("item", 1);
    EXPECT_EQ("fod", fod.get("baseName").toString());
    EXPECT_EQ("x:fod", fod.get("nodeName").toString());
    Object attributes = fod.obj("Attributes");
    ASSERT_EQ(3, attributes.get("length").toLong());
    const char* values[] = {"NDATAPOST", "", "Windows 7"};
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(values[i], attributes.obj("item", i).get("nodeValue").toString()) << i;
        EXPECT_EQ(values[i], attributes.obj("item", i).get("nodeTypedValue").toString()) << i;
    }
    EXPECT_EQ(err::ObjectVariableNotSet,
              contract::errorOf([&] { attributes.obj("item", 3).get("nodeValue"); }).number());
}

TEST_F(Xml, ElementsByTagNameAndPaths) {
    Object doc = load(kSchedule);
    Object all = doc.call("getElementsByTagName", "autopatchdeploy").toObject();
    ASSERT_EQ(2, all.get("length").toLong());
    EXPECT_EQ(2u, all.items().size());
    EXPECT_EQ("nested", all.obj("item", 1).get("text").toString());
    EXPECT_EQ(0, doc.call("getElementsByTagName", "upcls").toObject().get("length").toLong());

    EXPECT_TRUE(doc.call("selectSingleNode", "//autopatchdeploy/MonthDates").dispatch());
    EXPECT_FALSE(doc.call("selectSingleNode", "//autopatchdeploy/AlwaysDwnldGateway").dispatch());
}

TEST_F(Xml, ADocumentThatDoesNotParseIsEmpty) {
    const char* broken[] = {"", "not xml at all", "<a><b></a>", "<a>", "<?xml version=\"1.0\"?>"};
    for (const char* text : broken) {
        Object doc = load(text);
        EXPECT_FALSE(loaded) << text;
        EXPECT_EQ(0, doc.obj("childNodes").get("length").toLong()) << text;
    }
    // A failed load also empties a document that held one.
    Object doc = load("<a/>");
    ASSERT_TRUE(loaded);
    EXPECT_FALSE(doc.call("loadXML", "<a>").toBool());
    EXPECT_EQ(0, doc.obj("childNodes").get("length").toLong());
}

TEST_F(Xml, LoadReadsAFileByWindowsPath) {
    files().writeAll(at("MSUpd.xml"), kSchedule);
    files().writeAll(at("bom.xml"), "\xEF\xBB\xBF<?xml version=\"1.0\"?>\r\n<a><b>1</b></a>\r\n");
    files().writeAll(at("bad.xml"), "<a><b>1</b>");
    Object doc = automation().createObject("MSXML2.DOMDocument");
    doc.put("async", false);  // as every reader of the program loads
    EXPECT_TRUE(doc.call("Load", at("MSUpd.xml")).toBool());
    EXPECT_EQ(2, doc.call("getElementsByTagName", "autopatchdeploy").toObject().get("length").toLong());
    EXPECT_TRUE(doc.call("Load", at("BOM.XML")).toBool());  // names ignore case; the BOM is no node
    EXPECT_EQ(2, doc.obj("childNodes").get("length").toLong());
    for (const char* name : {"bad.xml", "missing.xml"}) {
        EXPECT_FALSE(doc.call("Load", at(name)).toBool()) << name;
        EXPECT_EQ(0, doc.obj("childNodes").get("length").toLong()) << name;
    }
}

// The product list's reader refuses the same hostile documents on every
// binding, before MSXML (which expands entities on Windows and Wine) sees them.
TEST_F(Xml, TheProductListReaderRefusesHostileDocumentsAlike) {
    std::string deep;
    for (int i = 0; i < 17; ++i) deep += "<v>";
    for (int i = 0; i < 17; ++i) deep += "</v>";
    struct Case {
        const char* name;
        std::string text;
        const char* refusal;  // empty: read
    } cases[] = {
        {"plain", "<pdlist format=\"1\"><!-- <!DOCTYPE in a comment> --></pdlist>", ""},
        {"quoted", "<pdlist format=\"1\" note='a > b'><![CDATA[<!DOCTYPE x>]]></pdlist>", ""},
        {"internal entity",
         "<?xml version=\"1.0\"?><!DOCTYPE pdlist [<!ENTITY a \"aaaaaaaaaa\"><!ENTITY b \"&a;&a;&a;&a;\">]>"
         "<pdlist format=\"1\">&b;</pdlist>",
         "refused: it declares a document type (\"<!DOCTYPE\"), which a product list never holds"},
        {"external entity",
         "<!DOCTYPE pdlist SYSTEM \"file:///C:/Windows/win.ini\"><pdlist format=\"1\"/>",
         "refused: it declares a document type (\"<!DOCTYPE\"), which a product list never holds"},
        {"deep", "<pdlist format=\"1\">" + deep + "</pdlist>", "refused: its elements nest deeper than 16 levels"},
        {"utf-16", std::string("\xFF\xFE<\0!\0D\0O\0C\0T\0Y\0P\0E\0", 20),
         "refused: it is not an 8-bit text (UTF-16 or a NUL byte)"},
    };
    for (const Case& c : cases) {
        files().writeAll(at("PDList.xml"), c.text);
        std::string refusal;
        try {
            kpm::ReadCatalogue(at("PDList.xml"));
        } catch (const platform::ComError& e) {
            refusal = e.description();
        }
        EXPECT_EQ(c.refusal, refusal) << c.name;
    }
}

}  // namespace

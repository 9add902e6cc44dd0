// The MSXML stand-in's node model: what the schedule readers and the web-post
// configuration rely on when they walk documents by position.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "platform/errors.h"
#include "platform/sim/xml_dom.h"
#include "support/test_machine.h"

using platform::Object;
using platform::Variant;

namespace {

// How a value reads in a table: Nothing and Null have no text of their own.
std::string show(const Variant& v) {
    if (v.isNull()) return "<Null>";
    if (v.isObject()) return "<Object>";
    return v.isEmpty() ? "<Nothing>" : v.toString();
}

class XmlDom : public ::testing::Test {
protected:
    void SetUp() override {
        auto& sim = machine.open(kpmtest::at("2026-11-15T16:10:00"));
        doc = Object(platform::sim::createDomDocument(sim.files(), sim.codePage()));
    }
    void TearDown() override { machine.close(); }

    Object node(const std::vector<int>& path) {  // child path[0] of the document, then its child path[1]...
        Object n = doc;
        for (int i : path) n = n.obj("childNodes").obj("item", i);
        return n;
    }
    std::string childNames(Object n) {
        std::string names;
        for (const auto& c : n.obj("childNodes").items()) names += c.toObject().get("nodeName").toString() + " ";
        return names;
    }

    kpmtest::TestMachine machine{true};
    Object doc;
};

TEST_F(XmlDom, LoadXmlKeepsWellFormedDocumentsAndEmptiesOnFailure) {
    struct Case {
        std::string text, topLevel;  // no top-level nodes: the text does not load
    };
    for (const Case& c : {
             Case{"<?xml version=\"1.0\"?>\r\n<!-- c -->\r\n<?style x?>\r\n<root><a/></root>\r\n", "xml #comment style root "},
             Case{"  \r\n\t<root/>\r\n  <!--end-->", "root #comment "},
             Case{"", ""},
             Case{"<root><a>09:00</a><b>", ""},  // truncated
             Case{"<root><a></b></root>", ""},
             Case{"<a/><b/>", ""},
             Case{"junk<root/>", ""},
             Case{"<!--c--><?xml version=\"1.0\"?><root/>", ""},
         }) {
        SCOPED_TRACE(c.text);
        const bool loads = !c.topLevel.empty();
        ASSERT_TRUE(doc.call("loadXML", "<previous/>").toBool());  // a failure also drops the old tree
        EXPECT_EQ(doc.call("loadXML", c.text).toBool(), loads);
        EXPECT_EQ(childNames(doc), c.topLevel);
        EXPECT_EQ(doc.obj("childNodes").get("length").toLong() > 0, loads);
        EXPECT_EQ(show(doc.get("documentElement")), loads ? "<Object>" : "<Nothing>");
    }
}

TEST_F(XmlDom, NodeModelByPosition) {
    ASSERT_TRUE(doc.call("loadXML",
                         "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n<!-- schedule -->\r\n"
                         "<root xmlns:p=\"urn:p\">\r\n  <s a=\"1\" b=\" two \" c=\"\">\r\n"
                         "    <t>  09:00 </t>\r\n    <u>x<![CDATA[ y ]]><v> z </v><w>k</w></u>\r\n"
                         "    <!-- note -->\r\n    <?pi data?>\r\n    <p:q>&lt;1&amp;2&gt;</p:q>\r\n  </s>\r\n"
                         "</root>\r\n")
                    .toBool());
    struct Probe {
        std::vector<int> path;
        const char* member;
        std::string expected;
    };
    for (const Probe& p : std::vector<Probe>{
             {{}, "nodeName", "#document"}, {{}, "nodeValue", "<Null>"},
             {{0}, "nodeType", "7"}, {{0}, "nodeValue", "version=\"1.0\" encoding=\"UTF-8\""},
             {{1}, "nodeName", "#comment"}, {{1}, "nodeValue", " schedule "}, {{1}, "baseName", ""},
             {{2}, "nodeType", "1"},
             // Element text: edges trimmed, two elements in a row joined by a blank.
             {{2, 0, 0}, "nodeTypedValue", "09:00"}, {{2, 0, 0, 0}, "nodeValue", "  09:00 "},
             {{2, 0, 0, 0}, "nodeName", "#text"}, {{2, 0, 1}, "text", "x y z k"},
             {{2, 0, 1, 1}, "nodeName", "#cdata-section"}, {{2, 0, 1, 1}, "nodeValue", " y "},
             {{2, 0, 3}, "nodeName", "pi"}, {{2, 0, 3}, "nodeValue", "data"},
             {{2, 0, 4}, "baseName", "q"}, {{2, 0, 4}, "nodeName", "p:q"},
             {{2, 0, 4}, "nodeTypedValue", "<1&2>"}}) {
        SCOPED_TRACE(std::string(p.member) + " of node " + std::to_string(p.path.size()) + " deep");
        EXPECT_EQ(show(node(p.path).get(p.member)), p.expected);
    }
    EXPECT_EQ(childNames(node({2, 0})), "t u #comment pi p:q ");  // blank text is gone

    Object attrs = node({2, 0}).obj("Attributes");
    ASSERT_EQ(attrs.get("length").toLong(), 3);
    std::string seen;
    for (int i = 0; i < 3; ++i)
        seen += attrs.obj("item", i).get("nodeName").toString() + "=[" +
                attrs.obj("item", i).get("nodeValue").toString() + "]";
    EXPECT_EQ(seen, "a=[1]b=[ two ]c=[]");  // document order, values as written
    EXPECT_EQ(node({0}).obj("attributes").obj("item", 0).get("nodeTypedValue").toString(), "1.0");
    EXPECT_EQ(show(node({2, 0, 3}).get("attributes")), "<Nothing>");
}

TEST_F(XmlDom, MissingPositionsAndBadCallsRaiseTheRuntimeErrors) {
    ASSERT_TRUE(doc.call("loadXML", "<r><s a='1'><!--c--></s></r>").toBool());
    struct Case {
        const char* name;
        std::function<void()> call;
        int number;
    };
    for (const Case& c : std::vector<Case>{
             {"member of an item past the end", [&] { node({0, 1}).get("nodeName"); }, 91},
             {"attributes of a comment", [&] { node({0, 0, 0}).obj("Attributes").obj("item", 0); }, 91},
             {"second attribute of one", [&] { node({0, 0}).obj("Attributes").obj("item", 1).get("nodeValue"); }, 91},
             {"element nodeValue as text", [&] { node({0}).get("nodeValue").toString(); }, 94},
             {"unknown member", [&] { node({0}).get("noSuchThing"); }, 438},
             {"put on a read-only property", [&] { node({0}).put("nodeName", "x"); }, 438},
             {"item without index", [&] { node({0}).obj("childNodes").get("item"); }, 450},
             {"malformed XPath", [&] { doc.get("selectSingleNode", "//s[@a="); }, static_cast<int>(0x80004005)},
         }) {
        SCOPED_TRACE(c.name);
        try {
            c.call();
            ADD_FAILURE() << "no error";
        } catch (const platform::ComError& e) {
            EXPECT_EQ(e.number(), c.number);
        }
    }
}

TEST_F(XmlDom, ElementSearchAndXPath) {
    ASSERT_TRUE(doc.call("loadXML", "<r><s n='1'><s n='2'/></s><x><s n='3'><g>1</g></s></x><G/></r>").toBool());
    auto ns = [](Object list) {
        std::string out;
        for (const auto& v : list.items()) out += v.toObject().obj("attributes").obj("item", 0).get("nodeValue").toString();
        return out;
    };
    EXPECT_EQ(ns(doc.call("getElementsByTagName", "s").toObject()), "123");  // document order, all depths
    EXPECT_EQ(ns(node({0, 0}).call("getElementsByTagName", "s").toObject()), "2");  // below, not itself
    EXPECT_EQ(doc.call("getElementsByTagName", "S").toObject().get("length").toLong(), 0);
    EXPECT_EQ(doc.call("getElementsByTagName", "*").toObject().get("length").toLong(), 7);

    for (const auto& [xpath, found] : std::vector<std::pair<const char*, std::string>>{
             {"//x/s/g", "1"}, {"//x/s/@n", "3"}, {"//r/G", ""}, {"//r/g", "<Nothing>"}}) {
        SCOPED_TRACE(xpath);
        Variant v = doc.call("selectSingleNode", xpath);
        EXPECT_EQ(v.isObject() ? v.toObject().get("nodeTypedValue").toString() : show(v), found);
    }
}

TEST_F(XmlDom, NestingBeyondTheLimitDoesNotLoad) {
    auto nested = [](size_t depth) {
        std::string xml;
        for (size_t i = 0; i < depth; ++i) xml += "<e>";
        for (size_t i = 0; i < depth; ++i) xml += "</e>";
        return xml;
    };
    // At the limit every element is found; beyond it (a hostile file of
    // 100,000 levels included) the document is refused, not walked.
    ASSERT_TRUE(doc.call("loadXML", nested(256)).toBool());
    EXPECT_EQ(doc.call("getElementsByTagName", "e").toObject().get("length").toLong(), 256);
    EXPECT_EQ(doc.get("text").toString(), "");
    for (size_t depth : {257u, 100000u}) {
        SCOPED_TRACE(depth);
        EXPECT_FALSE(doc.call("loadXML", nested(depth)).toBool());
        EXPECT_EQ(doc.obj("parseError").get("reason").toString(),
                  "Element depth exceeds limit in MaxElementDepth property.");
        EXPECT_EQ(doc.call("getElementsByTagName", "e").toObject().get("length").toLong(), 0);
    }
}

TEST_F(XmlDom, NodesOutliveAReloadAndWhiteSpaceCanBeKept) {
    ASSERT_TRUE(doc.call("LOADXML", "<a>\r\n  <b> old </b>\r\n</a>").toBool());
    Object b = doc.get("documentElement").toObject().obj("FirstChild");
    doc.put("preserveWhiteSpace", true);
    ASSERT_TRUE(doc.call("loadXML", "<a>\r\n  <b> x </b>\r\n</a>").toBool());
    EXPECT_EQ(b.get("NODETYPEDVALUE").toString(), "old");  // the old tree is still there
    Object a = doc.get("documentElement").toObject();
    EXPECT_EQ(a.obj("childNodes").get("length").toLong(), 3);
    EXPECT_EQ(a.obj("childNodes").obj("item", 1).get("text").toString(), " x ");
}

TEST_F(XmlDom, LoadIsSynchronousOnlyWhenAsyncIsFalse) {
    machine.writeFile("C:\\a.xml", "<a><b>1</b></a>");
    // Left asynchronous (MSXML's default), the document is still loading when read.
    EXPECT_TRUE(doc.get("async").toBool());
    EXPECT_TRUE(doc.call("Load", "C:\\a.xml").toBool());
    EXPECT_EQ(doc.get("readyState").toLong(), 1);
    EXPECT_EQ(doc.obj("childNodes").get("length").toLong(), 0);
    doc.put("async", false);
    EXPECT_TRUE(doc.call("Load", "C:\\a.xml").toBool());
    EXPECT_EQ(doc.get("readyState").toLong(), 4);
    EXPECT_EQ(doc.call("getElementsByTagName", "b").toObject().get("length").toLong(), 1);
}

}  // namespace

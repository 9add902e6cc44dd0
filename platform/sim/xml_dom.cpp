#include "platform/sim/xml_dom.h"

#include "platform/sim/xml_text.h"

#include <pugixml.hpp>

#include <algorithm>
#include <cctype>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace platform::sim {

namespace {

// One parsed tree and the document setting that shapes its texts.
struct Tree {
    pugi::xml_document doc;
    bool preserveWhiteSpace = false;
};
using DocPtr = std::shared_ptr<Tree>;

// MSXML's E_FAIL, which it raises for a malformed XPath expression.
constexpr int32_t kXmlFail = static_cast<int32_t>(0x80004005);
// parseError.errorCode of a document that did not parse (XML_E_... family).
constexpr int32_t kParseFailed = static_cast<int32_t>(0xC00CE501);
// How deep elements may nest in a loaded document, as real parsers limit it
// (MSXML 6's MaxElementDepth default). The tree's readers recurse per level,
// so a deeper file is refused at load rather than overflowing the stack.
constexpr size_t kMaxElementDepth = 256;
constexpr int32_t kLoadFileMissing = static_cast<int32_t>(0x800C0006);

std::string lower(std::string_view s) {
    std::string out(s);
    for (char& c : out) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return out;
}

Variant nothing() { return Variant(std::shared_ptr<Dispatch>{}); }

void needArgs(std::span<Arg> args, size_t n) {
    if (args.size() < n) throw makeError(err::WrongArgumentCount, "msxml3.dll");
}

[[noreturn]] void noMember() { throw makeError(err::NoSuchMember, "msxml3.dll"); }

// Read-only properties refuse a put; methods and property gets are both fine,
// as late binding asks for either.
void getOnly(CallKind kind) {
    if (kind == CallKind::PropertyPut) noMember();
}

std::string localPart(const char* qname) {
    std::string n = qname;
    auto colon = n.find(':');
    return colon == std::string::npos ? n : n.substr(colon + 1);
}

std::string prefixPart(const char* qname) {
    std::string n = qname;
    auto colon = n.find(':');
    return colon == std::string::npos ? std::string() : n.substr(0, colon);
}

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

std::string trimBlanks(const std::string& s) {
    size_t b = 0, e = s.size();
    while (b < e && isBlank(s[b])) ++b;
    while (e > b && isBlank(s[e - 1])) --e;
    return s.substr(b, e - b);
}

// xml:space="preserve" on the node or an ancestor keeps its blanks.
bool spacePreserved(pugi::xml_node n) {
    for (; n; n = n.parent())
        if (std::string(n.attribute("xml:space").value()) == "preserve") return true;
    return false;
}

// MSXML's text of a node: the text and CDATA below it in document order; two
// element children in a row are joined with a blank; unless white space is
// preserved, the text of an element, a text node or the document loses its
// leading and trailing blanks (at every level).
std::string nodeText(pugi::xml_node n, bool preserveAll) {
    std::string out;
    if (n.type() == pugi::node_pcdata || n.type() == pugi::node_cdata) {
        out = n.value();
    } else {
        bool previousWasElement = false;
        for (pugi::xml_node c = n.first_child(); c; c = c.next_sibling()) {
            std::string part;
            switch (c.type()) {
            case pugi::node_element: part = nodeText(c, preserveAll); break;
            case pugi::node_pcdata:
            case pugi::node_cdata: part = c.value(); break;
            default: continue;
            }
            if (part.empty()) continue;
            const bool isElement = c.type() == pugi::node_element;
            if (previousWasElement && isElement) out += ' ';
            out += part;
            previousWasElement = isElement;
        }
    }
    const bool trims = n.type() == pugi::node_element || n.type() == pugi::node_pcdata ||
                       n.type() == pugi::node_document;
    if (trims && !preserveAll && !spacePreserved(n)) out = trimBlanks(out);
    return out;
}

std::string declarationValue(pugi::xml_node decl) {
    std::string v;
    for (pugi::xml_attribute a : decl.attributes()) {
        if (!v.empty()) v += ' ';
        v += a.name();
        v += "=\"";
        v += a.value();
        v += '"';
    }
    return v;
}

std::string serialize(pugi::xml_node n) {
    std::ostringstream os;
    n.print(os, "", pugi::format_raw);
    return os.str();
}

Variant wrapNode(const DocPtr& doc, pugi::xml_node n);
Variant wrapAttribute(const DocPtr& doc, pugi::xml_attribute a);

// A snapshot collection of nodes: childNodes, getElementsByTagName, selectNodes.
class NodeList : public Dispatch {
public:
    explicit NodeList(std::vector<Variant> items) : items_(std::move(items)) {}

    Variant invoke(std::string_view member, CallKind kind, std::span<Arg> args) override {
        getOnly(kind);
        std::string m = lower(member);
        if (m == "length") return static_cast<long>(items_.size());
        if (m == "item" || m.empty()) {
            needArgs(args, 1);
            return at(args[0].value.toLong());
        }
        if (m == "nextnode") return at(cursor_++);
        if (m == "reset") {
            cursor_ = 0;
            return {};
        }
        noMember();
    }
    std::vector<Variant> enumerate() override { return items_; }

private:
    Variant at(int64_t i) const {
        if (i < 0 || i >= static_cast<int64_t>(items_.size())) return nothing();
        return items_[static_cast<size_t>(i)];
    }
    std::vector<Variant> items_;
    int64_t cursor_ = 0;
};

// An element's attributes (or the declaration's pseudo-attributes), in document order.
class AttributeMap : public Dispatch {
public:
    AttributeMap(DocPtr doc, pugi::xml_node owner) : doc_(std::move(doc)), owner_(owner) {}

    Variant invoke(std::string_view member, CallKind kind, std::span<Arg> args) override {
        getOnly(kind);
        std::string m = lower(member);
        if (m == "length") return static_cast<long>(count());
        if (m == "item" || m.empty()) {
            needArgs(args, 1);
            int64_t i = args[0].value.toLong();
            if (i < 0) return nothing();
            for (pugi::xml_attribute a : owner_.attributes())
                if (i-- == 0) return wrapAttribute(doc_, a);
            return nothing();
        }
        if (m == "getnameditem") {
            needArgs(args, 1);
            pugi::xml_attribute a = owner_.attribute(args[0].value.toString().c_str());
            return a ? wrapAttribute(doc_, a) : nothing();
        }
        noMember();
    }
    std::vector<Variant> enumerate() override {
        std::vector<Variant> out;
        for (pugi::xml_attribute a : owner_.attributes()) out.push_back(wrapAttribute(doc_, a));
        return out;
    }

private:
    size_t count() const {
        size_t n = 0;
        for (auto it = owner_.attributes_begin(); it != owner_.attributes_end(); ++it) ++n;
        return n;
    }
    DocPtr doc_;
    pugi::xml_node owner_;
};

class AttributeNode : public Dispatch {
public:
    AttributeNode(DocPtr doc, pugi::xml_attribute a) : doc_(std::move(doc)), a_(a) {}

    Variant invoke(std::string_view member, CallKind kind, std::span<Arg>) override {
        getOnly(kind);
        std::string m = lower(member);
        if (m == "nodetype") return xmlnode::Attribute;
        if (m == "nodetypestring") return "attribute";
        if (m == "nodename" || m == "name") return a_.name();
        if (m == "basename") return localPart(a_.name());
        if (m == "prefix") return prefixPart(a_.name());
        if (m == "nodevalue" || m == "nodetypedvalue" || m == "text" || m == "value")
            return a_.value();
        if (m == "xml") return std::string(a_.name()) + "=\"" + a_.value() + "\"";
        if (m == "attributes" || m == "parentnode" || m == "firstchild" || m == "lastchild" ||
            m == "nextsibling" || m == "previoussibling")
            return nothing();
        if (m == "childnodes") return Variant(std::make_shared<NodeList>(std::vector<Variant>{}));
        if (m == "haschildnodes") return false;
        noMember();
    }

private:
    DocPtr doc_;
    pugi::xml_attribute a_;
};

class ParseError : public Dispatch {
public:
    ParseError(int32_t code, std::string reason, long filepos)
        : code_(code), reason_(std::move(reason)), filepos_(filepos) {}

    Variant invoke(std::string_view member, CallKind kind, std::span<Arg>) override {
        getOnly(kind);
        std::string m = lower(member);
        if (m == "errorcode") return static_cast<long>(code_);
        if (m == "reason") return reason_;
        if (m == "filepos") return filepos_;
        if (m == "line" || m == "linepos") return 0;
        if (m == "srctext" || m == "url") return "";
        noMember();
    }

private:
    int32_t code_;
    std::string reason_;
    long filepos_;
};

// Any node of the tree: the document itself, elements, text, comments, PIs.
class Node : public Dispatch {
public:
    Node(DocPtr doc, pugi::xml_node n) : doc_(std::move(doc)), node_(n) {}

    Variant invoke(std::string_view member, CallKind kind, std::span<Arg> args) override {
        getOnly(kind);
        return nodeMember(lower(member), args);
    }

protected:
    Variant nodeMember(const std::string& m, std::span<Arg> args) {
        const pugi::xml_node_type t = node_.type();
        if (m == "nodetype") return nodeType();
        if (m == "nodetypestring") return nodeTypeString();
        if (m == "nodename") return nodeName();
        if (m == "basename") {
            if (t == pugi::node_element || t == pugi::node_pi) return localPart(node_.name());
            if (t == pugi::node_declaration) return "xml";
            return "";
        }
        if (m == "prefix")
            return t == pugi::node_element ? prefixPart(node_.name()) : std::string();
        if (m == "nodevalue") {
            switch (t) {
            case pugi::node_document:
            case pugi::node_element: return Variant::null();
            case pugi::node_declaration: return declarationValue(node_);
            default: return node_.value();
            }
        }
        if (m == "nodetypedvalue" || m == "text") {
            if (t == pugi::node_declaration) return declarationValue(node_);
            if (t == pugi::node_comment || t == pugi::node_pi) return node_.value();
            return nodeText(node_, doc_->preserveWhiteSpace);
        }
        if (m == "xml") {
            if (t == pugi::node_document) {
                std::string s;
                for (pugi::xml_node c : node_.children()) s += serialize(c);
                return s;
            }
            return serialize(node_);
        }
        if (m == "childnodes") {
            std::vector<Variant> items;
            for (pugi::xml_node c : node_.children()) items.push_back(wrapNode(doc_, c));
            return Variant(std::make_shared<NodeList>(std::move(items)));
        }
        if (m == "attributes") {
            if (t == pugi::node_element || t == pugi::node_declaration)
                return Variant(std::make_shared<AttributeMap>(doc_, node_));
            return nothing();
        }
        if (m == "haschildnodes") return static_cast<bool>(node_.first_child());
        if (m == "firstchild") return wrapNode(doc_, node_.first_child());
        if (m == "lastchild") return wrapNode(doc_, node_.last_child());
        if (m == "nextsibling") return wrapNode(doc_, node_.next_sibling());
        if (m == "previoussibling") return wrapNode(doc_, node_.previous_sibling());
        if (m == "parentnode") return wrapNode(doc_, node_.parent());
        if (m == "getelementsbytagname" &&
            (t == pugi::node_element || t == pugi::node_document)) {
            needArgs(args, 1);
            std::string name = args[0].value.toString();
            std::vector<Variant> items;
            collectElements(node_, name, items);
            return Variant(std::make_shared<NodeList>(std::move(items)));
        }
        if (m == "getattribute" && t == pugi::node_element) {
            needArgs(args, 1);
            pugi::xml_attribute a = node_.attribute(args[0].value.toString().c_str());
            return a ? Variant(a.value()) : Variant::null();
        }
        if (m == "selectsinglenode") {
            needArgs(args, 1);
            pugi::xpath_node found = select(args[0].value.toString()).first();
            if (!found) return nothing();
            return found.attribute() ? wrapAttribute(doc_, found.attribute())
                                     : wrapNode(doc_, found.node());
        }
        if (m == "selectnodes") {
            needArgs(args, 1);
            std::vector<Variant> items;
            for (const pugi::xpath_node& x : select(args[0].value.toString()))
                items.push_back(x.attribute() ? wrapAttribute(doc_, x.attribute())
                                              : wrapNode(doc_, x.node()));
            return Variant(std::make_shared<NodeList>(std::move(items)));
        }
        noMember();
    }

    int nodeType() const {
        switch (node_.type()) {
        case pugi::node_document: return xmlnode::Document;
        case pugi::node_element: return xmlnode::Element;
        case pugi::node_pcdata: return xmlnode::Text;
        case pugi::node_cdata: return xmlnode::CData;
        case pugi::node_comment: return xmlnode::Comment;
        default: return xmlnode::ProcessingInstruction;  // PIs and the declaration
        }
    }
    const char* nodeTypeString() const {
        switch (nodeType()) {
        case xmlnode::Document: return "document";
        case xmlnode::Element: return "element";
        case xmlnode::Text: return "text";
        case xmlnode::CData: return "cdatasection";
        case xmlnode::Comment: return "comment";
        default: return "processinginstruction";
        }
    }
    std::string nodeName() const {
        switch (node_.type()) {
        case pugi::node_document: return "#document";
        case pugi::node_pcdata: return "#text";
        case pugi::node_cdata: return "#cdata-section";
        case pugi::node_comment: return "#comment";
        case pugi::node_declaration: return "xml";
        default: return node_.name();
        }
    }

    // Every element below n in document order, walked without recursion.
    static void collectElements(pugi::xml_node n, const std::string& name,
                                std::vector<Variant>& out, const DocPtr& doc) {
        pugi::xml_node c = n.first_child();
        while (c) {
            if (c.type() == pugi::node_element) {
                if (name == "*" || name == c.name()) out.push_back(wrapNode(doc, c));
                if (c.first_child()) {
                    c = c.first_child();
                    continue;
                }
            }
            while (c && !c.next_sibling() && c != n) c = c.parent();
            if (!c || c == n) break;
            c = c.next_sibling();
        }
    }
    void collectElements(pugi::xml_node n, const std::string& name, std::vector<Variant>& out) {
        collectElements(n, name, out, doc_);
    }

    pugi::xpath_node_set select(const std::string& expr) {
        try {
            pugi::xpath_query q(expr.c_str());
            return q.evaluate_node_set(node_);
        } catch (const pugi::xpath_exception& e) {
            throw ComError(kXmlFail, "msxml3.dll", e.what());
        }
    }

    DocPtr doc_;
    pugi::xml_node node_;
};

// The document object that CreateObject gives: a Node whose tree is replaced by
// every Load / loadXML. Nodes handed out earlier keep their old tree alive.
class Document : public Node {
public:
    explicit Document(FileSystem& files) : Node(std::make_shared<Tree>(), {}), files_(files) {
        node_ = doc_->doc;
    }

    Variant invoke(std::string_view member, CallKind kind, std::span<Arg> args) override {
        std::string m = lower(member);
        if (kind == CallKind::PropertyPut) {
            needArgs(args, 1);
            if (m == "async") async_ = args[0].value.toBool();
            else if (m == "preservewhitespace") preserveWhiteSpace_ = args[0].value.toBool();
            else if (m == "validateonparse") validateOnParse_ = args[0].value.toBool();
            else if (m == "resolveexternals") resolveExternals_ = args[0].value.toBool();
            else noMember();
            return {};
        }
        if (m == "load") {
            needArgs(args, 1);
            if (async_) {
                // MSXML's default: Load only starts the load. A program with no
                // message loop that reads at once finds the document still
                // loading: modelled as a load that never ends here, so a
                // reader that forgot async=false shows on every pass.
                clear(0, "", 0);
                readyState_ = 1;
                return true;
            }
            readyState_ = 4;
            std::string text;
            try {
                text = files_.readAll(args[0].value.toString());
            } catch (const std::exception& e) {
                clear(kLoadFileMissing, e.what(), 0);
                return false;
            }
            std::string utf8, reason;
            if (!decodeXmlBytes(text, utf8, reason)) {
                clear(kParseFailed, reason, 0);
                return false;
            }
            return parse(std::move(utf8));
        }
        if (m == "loadxml") {
            needArgs(args, 1);
            readyState_ = 4;  // loadXML is synchronous whatever async says
            return parse(args[0].value.toString());
        }
        if (m == "documentelement") return wrapNode(doc_, doc_->doc.document_element());
        if (m == "parseerror") return Variant(std::make_shared<ParseError>(errorCode_, reason_, filepos_));
        if (m == "async") return async_;
        if (m == "preservewhitespace") return preserveWhiteSpace_;
        if (m == "validateonparse") return validateOnParse_;
        if (m == "resolveexternals") return resolveExternals_;
        if (m == "readystate") return readyState_;
        if (m == "setproperty") {
            needArgs(args, 2);
            return {};
        }
        if (m == "parentnode") return nothing();
        return nodeMember(m, args);
    }

private:
    // The deepest nesting of elements, walked without recursion.
    static size_t depthOf(const pugi::xml_node& root) {
        size_t depth = 0, deepest = 0;
        pugi::xml_node c = root.first_child();
        while (c) {
            if (c.type() == pugi::node_element) deepest = std::max(deepest, depth + 1);
            if (c.first_child()) {
                c = c.first_child();
                ++depth;
                continue;
            }
            while (c && !c.next_sibling() && c != root) {
                c = c.parent();
                if (depth > 0) --depth;
            }
            if (!c || c == root) break;
            c = c.next_sibling();
        }
        return deepest;
    }

    bool parse(std::string text) {
        // A UTF-8 byte order mark is not content.
        if (text.size() >= 3 && text.compare(0, 3, "\xEF\xBB\xBF") == 0) text.erase(0, 3);
        // As a fragment, so that text outside the document element shows and
        // can be refused below.
        unsigned options = pugi::parse_default | pugi::parse_comments | pugi::parse_pi |
                           pugi::parse_declaration | pugi::parse_fragment;
        if (preserveWhiteSpace_) options |= pugi::parse_ws_pcdata;
        auto tree = std::make_shared<Tree>();
        tree->preserveWhiteSpace = preserveWhiteSpace_;
        pugi::xml_document* doc = &tree->doc;
        pugi::xml_parse_result r = doc->load_buffer(text.data(), text.size(), options, pugi::encoding_utf8);
        if (!r) {
            clear(kParseFailed, r.description(), static_cast<long>(r.offset));
            return false;
        }
        // pugixml accepts fragments; MSXML wants one document element, no text
        // outside it, and the declaration only in first place.
        int elements = 0;
        std::vector<pugi::xml_node> blank;
        for (pugi::xml_node c : doc->children()) {
            switch (c.type()) {
            case pugi::node_element: ++elements; break;
            case pugi::node_pcdata:
            case pugi::node_cdata: {
                std::string v = c.value();
                if (c.type() == pugi::node_cdata ||
                    v.find_first_not_of(" \t\r\n") != std::string::npos) {
                    clear(kParseFailed, "Invalid at the top level of the document.", 0);
                    return false;
                }
                blank.push_back(c);
                break;
            }
            case pugi::node_declaration:
                if (c != doc->first_child()) {
                    clear(kParseFailed, "Invalid xml declaration.", 0);
                    return false;
                }
                break;
            default: break;
            }
        }
        if (elements != 1) {
            clear(kParseFailed,
                  elements == 0 ? "XML document must have a top level element."
                                : "Only one top level element is allowed in an XML document.",
                  0);
            return false;
        }
        for (pugi::xml_node b : blank) doc->remove_child(b);
        if (depthOf(*doc) > kMaxElementDepth) {
            clear(kParseFailed, "Element depth exceeds limit in MaxElementDepth property.", 0);
            return false;
        }
        doc_ = std::move(tree);
        node_ = doc_->doc;
        errorCode_ = 0;
        reason_.clear();
        filepos_ = 0;
        return true;
    }

    void clear(int32_t code, std::string reason, long filepos) {
        doc_ = std::make_shared<Tree>();
        doc_->preserveWhiteSpace = preserveWhiteSpace_;
        node_ = doc_->doc;
        errorCode_ = code;
        reason_ = std::move(reason);
        filepos_ = filepos;
    }

    FileSystem& files_;
    bool async_ = true, preserveWhiteSpace_ = false, validateOnParse_ = true,
         resolveExternals_ = true;
    long readyState_ = 4;
    int32_t errorCode_ = 0;
    std::string reason_;
    long filepos_ = 0;
};

Variant wrapNode(const DocPtr& doc, pugi::xml_node n) {
    if (!n) return nothing();
    return Variant(std::make_shared<Node>(doc, n));
}

Variant wrapAttribute(const DocPtr& doc, pugi::xml_attribute a) {
    if (!a) return nothing();
    return Variant(std::make_shared<AttributeNode>(doc, a));
}

}  // namespace

std::shared_ptr<Dispatch> createDomDocument(FileSystem& files, const CodePage& codePage) {
    return withAnsiText(std::make_shared<Document>(files), codePage);
}

}  // namespace platform::sim

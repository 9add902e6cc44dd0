// The update agent stand-in's inputs: its settings and its catalogues.
#include <cctype>
#include <charconv>
#include <cstdio>

#include "platform/errors.h"
#include "standins/update_agent.h"

namespace standins {

namespace {

using platform::Object;

std::string trim(std::string_view s) {
    size_t b = s.find_first_not_of(" \t\r\n\v");
    if (b == std::string_view::npos) return {};
    size_t e = s.find_last_not_of(" \t\r\n\v");
    return std::string(s.substr(b, e - b + 1));
}

// "0x8024402C" or a decimal number, negative ones included.
bool parseErrorNumber(const std::string& text, int32_t& out) {
    std::string_view t = text;
    int base = 10;
    if (t.size() > 2 && t[0] == '0' && (t[1] == 'x' || t[1] == 'X')) {
        t.remove_prefix(2);
        base = 16;
    }
    if (t.empty()) return false;
    int64_t v = 0;
    auto [p, ec] = std::from_chars(t.data(), t.data() + t.size(), v, base);
    if (ec != std::errc() || p != t.data() + t.size()) return false;
    if (base == 16 ? (v < 0 || v > 0xFFFFFFFFLL) : (v < INT32_MIN || v > INT32_MAX)) return false;
    out = static_cast<int32_t>(static_cast<uint32_t>(v));
    return true;
}

bool isDigits(const std::string& s) {
    if (s.empty() || s.size() > 9) return false;
    for (char c : s)
        if (!std::isdigit(static_cast<unsigned char>(c))) return false;
    return true;
}

// "yyyy-mm-dd" or "yyyy-mm-ddThh:mm:ss".
bool parseDeployed(const std::string& text, platform::DateTime& out) {
    if (platform::parseIsoDateTime(text, out)) return true;
    platform::DateTime t;
    int n = 0;
    if (std::sscanf(text.c_str(), "%4d-%2d-%2d%n", &t.year, &t.month, &t.day, &n) != 3 ||
        static_cast<size_t>(n) != text.size() || text.size() != 10 || !platform::isValid(t))
        return false;
    out = t;
    return true;
}

// A DOM node read late-bound, so that the same walk serves MSXML on Windows
// and the simulated machine's document.
struct Node {
    Object o;

    std::string name() { return o.get("nodeName").toString(); }
    bool isElement() { return o.get("nodeType").toLong() == 1; }
    // An attribute's value; false when the element has none.
    bool attribute(const char* attr, std::string& out) {
        platform::Variant v = o.call("getAttribute", attr);
        if (v.isNull() || v.isEmpty()) return false;
        out = v.toString();
        return true;
    }
    std::vector<Node> children() {
        Object list = o.obj("childNodes");
        long n = static_cast<long>(list.get("length").toLong());
        std::vector<Node> out;
        for (long i = 0; i < n; ++i) out.push_back(Node{list.obj("item", i)});
        return out;
    }
};

class CatalogReader {
public:
    bool update(Node& n, int depth, CatalogUpdate& u) {
        if (depth > kMaxBundleDepth)
            return bad("bundled updates nest deeper than " + std::to_string(kMaxBundleDepth) + " levels");
        std::string text;
        if (!n.attribute("id", u.id) || trim(u.id).empty()) return bad("an <update> has no id");
        u.id = trim(u.id);
        const std::string where = "<update id=\"" + u.id + "\">";
        if (n.attribute("revision", text)) {
            if (!isDigits(trim(text))) return bad(where + ": revision \"" + text + "\" is not a number");
            u.revision = std::stol(trim(text));
        }
        if (n.attribute("installed", text)) {
            text = trim(text);
            if (text != "0" && text != "1") return bad(where + ": installed must be 0 or 1");
            u.installed = text == "1";
        }
        if (!n.attribute("deployed", text)) return bad(where + " has no deployed date");
        if (!parseDeployed(trim(text), u.deployed))
            return bad(where + ": deployed \"" + text + "\" is not a date like 2026-10-14");
        n.attribute("title", u.title);

        for (Node& c : n.children()) {
            if (!c.isElement()) continue;  // comments
            const std::string name = c.name();
            if (name == "kb") {
                std::string kb = trim(c.o.get("text").toString());
                if (kb.empty()) return bad(where + ": an empty <kb>");
                u.kbs.push_back(kb);
            } else if (name == "category") {
                std::string type, catName;
                if (!c.attribute("type", type) || !c.attribute("name", catName))
                    return bad(where + ": a <category> needs type and name");
                // The agent's own category types, spelt as it reports them.
                if (type != "UpdateClassification" && type != "Product" && type != "ProductFamily" &&
                    type != "Company")
                    return bad(where + ": category type \"" + type +
                               "\" is none of UpdateClassification, Product, ProductFamily, Company");
                u.categories.emplace_back(type, catName);
            } else if (name == "content") {
                std::string url;
                if (!c.attribute("url", url) || trim(url).empty())
                    return bad(where + ": a <content> has no url");
                u.contents.push_back(trim(url));
            } else if (name == "update") {
                CatalogUpdate b;
                if (!update(c, depth + 1, b)) return false;
                u.bundled.push_back(std::move(b));
            } else {
                return bad(where + ": unknown element <" + name + ">");
            }
        }
        return true;
    }

    bool bad(std::string why) {
        reason = std::move(why);
        return false;
    }

    std::string reason;
};

}  // namespace

UpdateAgentSettings parseUpdateAgentSettings(const std::string& iniText, const std::string& fileName) {
    UpdateAgentSettings s;
    bool inSection = false;
    size_t lineNo = 0, pos = 0;
    while (pos <= iniText.size()) {
        size_t end = iniText.find('\n', pos);
        if (end == std::string::npos) end = iniText.size();
        std::string line = trim(std::string_view(iniText).substr(pos, end - pos));
        pos = end + 1;
        ++lineNo;
        if (line.empty() || line[0] == ';') continue;
        if (line[0] == '[') {
            size_t close = line.find(']');
            const std::string name = line.substr(1, close == std::string::npos ? std::string::npos : close - 1);
            inSection = platform::iequals(trim(name), "WindowsUpdate");
            continue;
        }
        size_t eq = line.find('=');
        if (!inSection || eq == std::string::npos) continue;
        const std::string key = trim(line.substr(0, eq));
        std::string value = trim(line.substr(eq + 1));
        if (value.size() >= 2 && (value.front() == '"' || value.front() == '\'') && value.back() == value.front())
            value = value.substr(1, value.size() - 2);
        if (platform::iequals(key, "AgentVersion")) {
            s.agentVersion = value;
        } else if (platform::iequals(key, "Catalog")) {
            s.catalog = value;
        } else if (platform::iequals(key, "SearchError")) {
            if (!parseErrorNumber(value, s.searchError) && s.error.empty())
                s.error = fileName + " line " + std::to_string(lineNo) + ": [WindowsUpdate] SearchError=" + value +
                          " is not an error number like 0x8024402C";
        }
    }
    return s;
}

bool readCatalog(Object document, const std::string& text, std::vector<CatalogUpdate>& out, std::string& reason) {
    out.clear();
    try {
        document.put("async", false);
        if (!document.call("loadXML", text).toBool()) {
            reason = "not well-formed XML: " + trim(document.obj("parseError").get("reason").toString());
            return false;
        }
        Node root{document.obj("documentElement")};
        if (root.name() != "updates") {
            reason = "the document element is <" + root.name() + ">, not <updates>";
            return false;
        }
        CatalogReader r;
        for (Node& c : root.children()) {
            if (!c.isElement()) continue;
            if (c.name() != "update") {
                reason = "unknown element <" + c.name() + "> in <updates>";
                return false;
            }
            CatalogUpdate u;
            if (!r.update(c, 1, u)) {
                reason = r.reason;
                return false;
            }
            out.push_back(std::move(u));
        }
        return true;
    } catch (const platform::ComError& e) {
        reason = "the XML document failed: " + e.description();
        return false;
    }
}

}  // namespace standins

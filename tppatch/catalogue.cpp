#include "tppatch/catalogue.h"

#include <algorithm>
#include <cctype>
#include <set>
#include <stdexcept>

#include "config/ini.h"
#include "platform/errors.h"
#include "platform/host.h"
#include "tppatch/text_case.h"
#include "tppatch/wildcard.h"
#include "tppatch/xml_guard.h"

namespace kpm {

using platform::Object;

namespace {

constexpr int kElementNode = 1;

// A rule the entry breaks; the entry is refused with these words.
struct Refusal : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// The element children of a node (comments and white space are not entries).
std::vector<Object> elements(Object& node) {
    std::vector<Object> out;
    for (const auto& item : node.obj("childNodes").items()) {
        Object child = item.toObject();
        if (child.get("nodeType").toLong() == kElementNode) out.push_back(child);
    }
    return out;
}

std::string nameOf(Object& node) { return node.get("nodeName").toString(); }

// An attribute's text; empty when it is missing.
std::string attr(Object& node, const char* name) {
    platform::Variant v = node.call("getAttribute", name);
    return v.isNull() || v.isEmpty() ? std::string() : v.toString();
}

std::string required(Object& node, const char* name) {
    std::string v = attr(node, name);
    if (v.empty()) throw Refusal("<" + nameOf(node) + "> has no " + name);
    return v;
}

bool isId(const std::string& s) {
    return !s.empty() && s.size() <= 100 && std::all_of(s.begin(), s.end(), [](char c) {
        return std::isalnum(static_cast<unsigned char>(c)) || c == '.' || c == '_' || c == '-';
    });
}

bool isHex(const std::string& s, size_t digits) {
    return s.size() == digits && std::all_of(s.begin(), s.end(), [](char c) { return std::isxdigit(static_cast<unsigned char>(c)); });
}

// A device Windows opens whatever the folder and extension: "NUL.exe",
// "COM1 .tar.gz", and the ports numbered with superscript digits ("LPT³").
bool isDeviceName(const std::string& name) {
    std::u16string stem = FoldedText(std::string_view(name).substr(0, name.find('.')));
    while (!stem.empty() && stem.back() == u' ') stem.pop_back();
    static const std::set<std::u16string> devices = {u"CON", u"PRN", u"AUX", u"NUL", u"CONIN$", u"CONOUT$"};
    if (devices.count(stem)) return true;
    const bool port = stem.size() == 4 && (stem.starts_with(u"COM") || stem.starts_with(u"LPT"));
    const char16_t n = port ? stem[3] : u'x';
    return (n >= u'0' && n <= u'9') || n == u'\u00B9' || n == u'\u00B2' || n == u'\u00B3';
}

}  // namespace

// A name the installer may have in its folder: no folder of its own, nothing
// Windows would read otherwise ("..", a device, a trailing dot or blank).
bool IsInstallerName(const std::string& name) {
    if (name.empty() || name.size() > 200 || name == "." || name == "..") return false;
    // "FIREFO~1.EXE" may be another file's short 8.3 alias.
    for (size_t tilde = name.find('~'); tilde != std::string::npos; tilde = name.find('~', tilde + 1))
        if (tilde + 1 < name.size() && std::isdigit(static_cast<unsigned char>(name[tilde + 1]))) return false;
    if (name.back() == '.' || name.back() == ' ' || name.find("..") != std::string::npos) return false;
    for (char c : name)
        if (static_cast<unsigned char>(c) < 0x20 || std::string_view("\\/:*?\"<>|").find(c) != std::string_view::npos)
            return false;
    return !isDeviceName(name);
}

namespace {

uint64_t readSize(const std::string& text) {
    uint64_t n = 0;
    if (text.empty() || text.size() > 19) throw Refusal("size \"" + text + "\" is not a number of bytes");
    for (char c : text) {
        if (c < '0' || c > '9') throw Refusal("size \"" + text + "\" is not a number of bytes");
        n = n * 10 + static_cast<uint64_t>(c - '0');
    }
    if (n == 0) throw Refusal("size is 0");
    return n;
}

ProductVersion readVersion(const std::string& text, const std::string& what) {
    auto v = ParseVersion(text);
    if (!v) throw Refusal(what + " \"" + text + "\" is not a version");
    return *v;
}

TextTest readText(Object& node) {
    TextTest t;
    const std::string is = attr(node, "is"), like = attr(node, "like");
    if (!is.empty() == !like.empty()) throw Refusal("<" + nameOf(node) + "> needs one of is or like");
    t.kind = is.empty() ? TextTest::Kind::Like : TextTest::Kind::Is;
    t.text = is.empty() ? like : is;
    return t;
}

// A value's name; "@" is the key's default value, as in a .reg file.
std::string valueName(Object& node, const char* attribute) {
    const std::string name = required(node, attribute);
    return name == "@" ? std::string() : name;
}

ValueTest readValueTest(Object& node) {
    ValueTest t;
    t.value = valueName(node, "name");
    const std::string exists = attr(node, "exists"), op = attr(node, "op"), isNot = attr(node, "isNot");
    const bool text = !attr(node, "is").empty() || !attr(node, "like").empty();
    if (text + !isNot.empty() + !exists.empty() + !op.empty() != 1)
        throw Refusal("<value name=\"" + t.value + "\"> needs one of is, isNot, like, exists or op");
    const std::string orMissing = attr(node, "orMissing");
    if (!orMissing.empty()) {
        if (orMissing != "yes" && orMissing != "no") throw Refusal("orMissing=\"" + orMissing + "\" is not yes or no");
        if (!exists.empty() || !isNot.empty())
            throw Refusal("orMissing goes with is, like or op; exists and isNot say themselves what a missing value does");
        t.orMissing = orMissing == "yes";
    }
    if (!isNot.empty()) {
        // "Missing, or not this text": what says an entry is not a hotfix.
        t.kind = ValueTest::Kind::Text;
        t.text = {TextTest::Kind::Is, isNot};
        t.negated = true;
        t.orMissing = true;
    } else if (text) {
        t.kind = ValueTest::Kind::Text;
        t.text = readText(node);
    } else if (!exists.empty()) {
        if (exists != "yes" && exists != "no") throw Refusal("exists=\"" + exists + "\" is not yes or no");
        t.kind = exists == "yes" ? ValueTest::Kind::Exists : ValueTest::Kind::Missing;
    } else {
        static const std::pair<const char*, ValueTest::Op> ops[] = {
            {"eq", ValueTest::Op::Eq}, {"ne", ValueTest::Op::Ne}, {"lt", ValueTest::Op::Lt},
            {"le", ValueTest::Op::Le}, {"gt", ValueTest::Op::Gt}, {"ge", ValueTest::Op::Ge}};
        auto found = std::find_if(std::begin(ops), std::end(ops), [&](const auto& o) { return op == o.first; });
        if (found == std::end(ops)) throw Refusal("op=\"" + op + "\" is not eq, ne, lt, le, gt or ge");
        t.op = found->second;
        const std::string dword = attr(node, "dword"), version = attr(node, "version");
        if (dword.empty() == version.empty()) throw Refusal("op=\"" + op + "\" needs one of dword or version");
        if (!dword.empty()) {
            t.kind = ValueTest::Kind::Dword;
            try {
                size_t used = 0;
                const unsigned long long n = std::stoull(dword, &used, 0);
                if (used != dword.size() || n > 0xFFFFFFFFull || dword[0] == '-') throw std::out_of_range(dword);
                t.dword = static_cast<uint32_t>(n);
            } catch (const std::logic_error&) {
                throw Refusal("dword=\"" + dword + "\" is not a 32-bit number");
            }
        } else {
            t.kind = ValueTest::Kind::Version;
            t.version = readVersion(version, "version");
        }
    }
    return t;
}

Detection readDetection(Object& node, Product::Arch arch) {
    Detection d;
    const std::string kind = nameOf(node);
    d.kind = kind == "uninstall" ? Detection::Kind::Uninstall : Detection::Kind::Key;

    const std::string scope = attr(node, "scope");
    if (scope == "users") d.scope = Detection::Scope::Users;
    else if (!scope.empty() && scope != "machine") throw Refusal("scope=\"" + scope + "\" is not machine or users");

    const std::string view = attr(node, "view");
    const Detection::View natural = arch == Product::Arch::X86   ? Detection::View::Bits32
                                    : arch == Product::Arch::X64 ? Detection::View::Bits64
                                                                 : Detection::View::Both;
    d.view = natural;
    if (!view.empty()) {
        if (d.scope == Detection::Scope::Users) throw Refusal("a user's Software has one view: no view with scope=\"users\"");
        if (view == "32") d.view = Detection::View::Bits32;
        else if (view == "64") d.view = Detection::View::Bits64;
        else if (view == "both") d.view = Detection::View::Both;
        else throw Refusal("view=\"" + view + "\" is not 32, 64 or both");
        // The installer must suit the install it replaces.
        if (arch != Product::Arch::Any && d.view != natural)
            throw Refusal("view=\"" + view + "\" does not fit arch=\"" + ArchText(arch) + "\"");
    }

    if (d.kind == Detection::Kind::Key) {
        d.keyPath = required(node, "path");
        const std::string p = LCase(d.keyPath);
        if (p.find("wow6432node") != std::string::npos) throw Refusal("path names Wow6432Node: name the view instead");
        if (p.rfind("hkey_", 0) == 0 || p.rfind("hklm", 0) == 0 || p.rfind("hkcu", 0) == 0 || p.rfind("hku", 0) == 0 ||
            p.front() == '\\' || p.find("\\\\") != std::string::npos || p.back() == '\\')
            throw Refusal("path \"" + d.keyPath + "\" is not a key below the hive");
    }

    bool haveVersion = false;
    for (Object& child : elements(node)) {
        const std::string name = nameOf(child);
        if (name == "keyName" && d.kind == Detection::Kind::Uninstall && !d.hasKeyName) {
            d.hasKeyName = true;
            d.keyName = readText(child);
        } else if (name == "value") {
            d.tests.push_back(readValueTest(child));
        } else if (name == "version" && !haveVersion) {
            haveVersion = true;
            d.version.value = valueName(child, "value");
            const std::string form = attr(child, "form");
            if (form == "packed") d.version.packed = true;
            else if (!form.empty() && form != "text") throw Refusal("form=\"" + form + "\" is not text or packed");
            d.version.pattern = attr(child, "pattern");
            const std::string build = attr(child, "build"), fallback = attr(child, "fallback");
            if (build == "parentheses") d.version.buildInParentheses = true;
            else if (!build.empty()) throw Refusal("build=\"" + build + "\" is not parentheses");
            if (fallback == "majorMinor") d.version.fallback = VersionSource::Fallback::MajorMinor;
            else if (fallback == "packed") d.version.fallback = VersionSource::Fallback::Packed;
            else if (!fallback.empty()) throw Refusal("fallback=\"" + fallback + "\" is not majorMinor or packed");
            if ((d.version.buildInParentheses || d.version.fallback != VersionSource::Fallback::None) && d.version.packed)
                throw Refusal("build and fallback go with a text version, not form=\"packed\"");
            if (!d.version.pattern.empty()) {
                const size_t at = d.version.pattern.find("{version}");
                if (d.version.packed || at == std::string::npos ||
                    d.version.pattern.find("{version}", at + 1) != std::string::npos)
                    throw Refusal("pattern \"" + d.version.pattern + "\" needs one {version} and a text value");
            }
        } else {
            throw Refusal("<" + kind + "> cannot hold <" + name + "> here");
        }
    }
    if (!haveVersion) throw Refusal("<" + kind + "> has no <version>");
    return d;
}

ProductUpdate readUpdate(Object& node) {
    ProductUpdate u;
    u.id = required(node, "id");
    if (!isId(u.id)) throw Refusal("update id \"" + u.id + "\" is not letters, digits, . _ -");
    u.version = required(node, "version");
    readVersion(u.version, "version");
    u.installedVersion = attr(node, "installedVersion");
    if (u.installedVersion.empty()) u.installedVersion = u.version;
    readVersion(u.installedVersion, "installedVersion");

    std::vector<Object> children = elements(node);
    if (children.size() != 1 || nameOf(children[0]) != "installer") throw Refusal("<update> holds one <installer>");
    Object& in = children[0];
    Installer& i = u.installer;
    const std::string scope = attr(in, "scope");
    if (scope == "user") i.scope = Installer::Scope::User;
    else if (!scope.empty() && scope != "machine") throw Refusal("installer scope=\"" + scope + "\" is not machine or user");
    i.name = required(in, "name");
    if (i.name.find('?') != std::string::npos)
        throw Refusal("installer name \"" + i.name + "\" has a character this computer's code page lacks, or a \"?\"");
    if (!IsInstallerName(i.name)) throw Refusal("installer name \"" + i.name + "\" would not stay in its folder");
    i.size = readSize(required(in, "size"));
    i.md5 = LCase(attr(in, "md5"));
    if (!isHex(i.md5, 32)) throw Refusal("the installer has no MD5 of 32 hex digits");
    i.sha256 = LCase(attr(in, "sha256"));
    if (!i.sha256.empty() && !isHex(i.sha256, 64)) throw Refusal("sha256 is not 64 hex digits");
    i.url = required(in, "url");
    const std::string scheme = LCase(i.url.substr(0, 8));
    if (scheme.rfind("http://", 0) != 0 && scheme.rfind("https://", 0) != 0)
        throw Refusal("url \"" + i.url + "\" is not http or https");
    // Only ASCII: a letter outside it would reach the server as this
    // computer's code page has it (or as "?"), never as the vendor wrote it.
    if (std::any_of(i.url.begin(), i.url.end(), [](char c) {
            const auto u = static_cast<unsigned char>(c);
            return u <= 0x20 || u >= 0x7F;
        }))
        throw Refusal("url holds a blank, a control character or a letter outside ASCII: write it %-encoded");
    return u;
}

Product readProduct(Object& node) {
    Product p;
    p.id = required(node, "id");
    if (!isId(p.id)) throw Refusal("product id \"" + p.id + "\" is not letters, digits, . _ -");
    p.name = required(node, "name");
    const std::string arch = required(node, "arch");
    if (arch == "x86") p.arch = Product::Arch::X86;
    else if (arch == "x64") p.arch = Product::Arch::X64;
    else if (arch == "any") p.arch = Product::Arch::Any;
    else throw Refusal("arch=\"" + arch + "\" is not x86, x64 or any");

    int detections = 0, updates = 0;
    for (Object& child : elements(node)) {
        const std::string name = nameOf(child);
        if (name == "uninstall" || name == "key") {
            if (detections++) throw Refusal("a product has one detection (<uninstall> or <key>)");
            p.detect = readDetection(child, p.arch);
        } else if (name == "update") {
            if (updates++) throw Refusal("a product has one <update>");
            p.update = readUpdate(child);
        } else {
            throw Refusal("<product> cannot hold <" + name + ">");
        }
    }
    if (!detections) throw Refusal("no <uninstall> or <key> says where the product shows");
    if (!updates) throw Refusal("no <update>");
    // A detection that cannot see what the installer writes would find the
    // product old after every install: the same installer needed forever.
    const bool userInstaller = p.update.installer.scope == Installer::Scope::User;
    if (userInstaller != (p.detect.scope == Detection::Scope::Users))
        throw Refusal(userInstaller ? "a per-user installer (scope=\"user\") with a detection of the machine: it cannot see the update"
                                    : "a machine-wide installer with a detection in the users' hives (scope=\"users\"): it cannot see the update");
    return p;
}

}  // namespace

std::string ArchText(Product::Arch arch) {
    return arch == Product::Arch::X86 ? "x86" : arch == Product::Arch::X64 ? "x64" : "any";
}

std::string ViewText(Detection::View view) {
    return view == Detection::View::Bits32 ? "32-bit" : view == Detection::View::Bits64 ? "64-bit" : "both";
}

std::string TextTest::Anchor() const {
    if (kind == Kind::Is) return text;
    return text.substr(0, text.find_first_of("*?"));
}

bool TextTest::Holds(std::string_view value) const {
    return kind == Kind::Is ? WildcardEquals(text, value) : WildcardMatch(text, value);
}

Catalogue ReadCatalogue(const std::string& path) {
    // The bytes are checked before any parser sees them: MSXML 3.0 expands
    // what Wine's MSXML and the simulated machine's refuse.
    if (platform::files().fileSize(path) > kMostProductListBytes)
        throw platform::ComError(5, "PDList.xml", "refused: it is larger than " + std::to_string(kMostProductListBytes) +
                                                      " bytes");
    if (const std::string hostile = HostileXmlReason(platform::files().readAll(path)); !hostile.empty())
        throw platform::ComError(5, "PDList.xml", "refused: " + hostile);
    Object doc = platform::automation().createObject("MSXML2.DOMDocument");
    doc.put("async", false);
    if (!doc.call("Load", path).toBool()) {
        Object error = doc.obj("parseError");
        throw platform::ComError(static_cast<int32_t>(error.get("errorCode").toLong()), "PDList.xml",
                                 "not well-formed XML: " + error.get("reason").toString());
    }
    Object root = doc.obj("documentElement");
    if (nameOf(root) != "pdlist") throw platform::ComError(5, "PDList.xml", "its root is not <pdlist>");
    const std::string format = attr(root, "format");
    if (format != "1")
        throw platform::ComError(5, "PDList.xml", "format \"" + format + "\" is not the format 1 this agent reads");

    Catalogue c;
    std::set<std::string> vendorIds, productIds, updateIds;
    std::set<std::u16string> installerNames;
    for (Object& vendorNode : elements(root)) {
        Vendor v;
        try {
            if (nameOf(vendorNode) != "vendor") throw Refusal("<pdlist> cannot hold <" + nameOf(vendorNode) + ">");
            v.id = required(vendorNode, "id");
            if (!isId(v.id)) throw Refusal("vendor id \"" + v.id + "\" is not letters, digits, . _ -");
            v.name = required(vendorNode, "name");
            if (!vendorIds.insert(LCase(v.id)).second) throw Refusal("a second vendor with this id");
        } catch (const Refusal& r) {
            c.refused.push_back("vendor " + (v.id.empty() ? "?" : v.id) + ": " + r.what());
            continue;
        }
        c.vendors.push_back(v);
        const size_t vendorIndex = c.vendors.size() - 1;
        for (Object& productNode : elements(vendorNode)) {
            std::string id;
            try {
                id = attr(productNode, "id");
                if (nameOf(productNode) != "product") throw Refusal("<vendor> cannot hold <" + nameOf(productNode) + ">");
                Product p = readProduct(productNode);
                if (productIds.count(LCase(p.id))) throw Refusal("a second product with this id");
                if (updateIds.count(LCase(p.update.id))) throw Refusal("update id \"" + p.update.id + "\" is taken");
                // Names Windows takes for one file, "Éditeur.exe" and "ÉDITEUR.EXE" too.
                const std::u16string installerKey = FoldedText(p.update.installer.name);
                if (installerNames.count(installerKey))
                    throw Refusal("another product's installer is named \"" + p.update.installer.name + "\"");
                productIds.insert(LCase(p.id));
                updateIds.insert(LCase(p.update.id));
                installerNames.insert(installerKey);
                p.vendor = vendorIndex;
                c.products.push_back(std::move(p));
                ++c.vendors[vendorIndex].products;
            } catch (const Refusal& r) {
                c.refused.push_back("product " + (id.empty() ? "?" : id) + ": " + r.what());
            }
        }
    }
    return c;
}

}  // namespace kpm

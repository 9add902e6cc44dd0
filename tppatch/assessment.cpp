#include "tppatch/assessment.h"

#include <algorithm>
#include <cstdio>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <stdexcept>

#include "config/ini.h"
#include "log/w3c_log.h"
#include "platform/host.h"
#include "tppatch/log_text.h"
#include "tppatch/uninstall_entry.h"
#include "tppatch/user_hives.h"
#include "tppatch/text_case.h"
#include "tppatch/wildcard.h"

namespace kpm {

namespace {

using platform::Hive;
using platform::RegValue;
using platform::RegView;

constexpr const char* kModule = "ModTPMAssess";

// A key that exists but cannot be read: the product's assessment fails.
struct RegistryFailure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

std::string trim(std::string_view s) {
    const size_t first = s.find_first_not_of(" \t");
    if (first == std::string_view::npos) return "";
    return std::string(s.substr(first, s.find_last_not_of(" \t") - first + 1));
}

// Longer values are not matched against patterns: a standard user can write
// a megabyte into their own hive, and a pattern's matching time grows with it.
constexpr size_t kLongestMatched = 4096;

std::string typeName(uint32_t type) {
    switch (type) {
    case platform::regtype::Binary: return "REG_BINARY";
    case platform::regtype::Dword: return "REG_DWORD";
    case platform::regtype::MultiString: return "REG_MULTI_SZ";
    case platform::regtype::Qword: return "REG_QWORD";
    case platform::regtype::String: return "REG_SZ";
    case platform::regtype::ExpandString: return "REG_EXPAND_SZ";
    default: return "type " + std::to_string(type);
    }
}

bool compared(int c, ValueTest::Op op) {
    switch (op) {
    case ValueTest::Op::Eq: return c == 0;
    case ValueTest::Op::Ne: return c != 0;
    case ValueTest::Op::Lt: return c < 0;
    case ValueTest::Op::Le: return c <= 0;
    case ValueTest::Op::Gt: return c > 0;
    case ValueTest::Op::Ge: return c >= 0;
    }
    return false;
}

bool holds(const ValueTest& t, const std::optional<RegValue>& v) {
    if (!v && t.orMissing) return true;
    switch (t.kind) {
    case ValueTest::Kind::Exists: return v.has_value();
    case ValueTest::Kind::Missing: return !v;
    case ValueTest::Kind::Text:
        return (v && v->isText() && v->data.size() <= kLongestMatched && t.text.Holds(v->text())) != t.negated;
    case ValueTest::Kind::Dword:
        if (!v || v->type != platform::regtype::Dword) return false;
        return compared(v->dwordValue() < t.dword ? -1 : v->dwordValue() > t.dword ? 1 : 0, t.op);
    case ValueTest::Kind::Version: {
        if (!v || !v->isText()) return false;
        auto version = ParseVersion(v->text());
        return version && compared(CompareVersions(*version, t.version), t.op);
    }
    }
    return false;
}

struct VersionRead {
    std::optional<ProductVersion> version;
    std::string evidence;
};

// Reads one value of the key that matched; nullopt when it is missing.
using ValueLookup = std::function<std::optional<RegValue>(const std::string&)>;

VersionRead packedVersion(const std::string& name, const RegValue& v) {
    if (v.type != platform::regtype::Dword) return {std::nullopt, name + " is " + typeName(v.type) + ", not REG_DWORD"};
    const uint32_t d = v.dwordValue();
    const std::string text = std::to_string(d >> 24) + "." + std::to_string((d >> 16) & 0xFF) + "." + std::to_string(d & 0xFFFF);
    char hex[16];
    std::snprintf(hex, sizeof hex, "0x%08X", d);
    return {ParseVersion(text), name + "=" + hex + " (" + text + ")"};
}

// "1.2.3 (build 4567)" as 1.2.3.4567: the last run of digits in the last
// parentheses is the next part; text without them is left as it is.
std::string withBuildNumber(const std::string& text) {
    const size_t open = text.rfind('('), close = text.rfind(')');
    if (open == std::string::npos || close == std::string::npos || close < open) return text;
    const std::string inside = text.substr(open + 1, close - open - 1);
    const size_t last = inside.find_last_of("0123456789");
    if (last == std::string::npos) return text;
    const size_t first = inside.find_last_not_of("0123456789", last) + 1;
    return trim(text.substr(0, open)) + "." + inside.substr(first, last - first + 1);
}

// Where the version value is missing, the numbers Windows Installer writes
// beside it, as the catalogue says.
VersionRead fallbackVersion(const VersionSource& source, const ValueLookup& value) {
    const std::string missing = source.value + " is missing";
    if (source.fallback == VersionSource::Fallback::Packed) {
        const auto v = value("Version");
        if (!v) return {std::nullopt, missing + ", and Version too"};
        VersionRead r = packedVersion("Version", *v);
        r.evidence = missing + "; " + r.evidence;
        return r;
    }
    const auto major = value("VersionMajor"), minor = value("VersionMinor");
    if (!major || !minor) return {std::nullopt, missing + ", and VersionMajor or VersionMinor too"};
    if (major->type != platform::regtype::Dword || minor->type != platform::regtype::Dword)
        return {std::nullopt, missing + "; VersionMajor and VersionMinor are not both REG_DWORD"};
    const std::string text = std::to_string(major->dwordValue()) + "." + std::to_string(minor->dwordValue());
    return {ParseVersion(text), missing + "; VersionMajor.VersionMinor=" + text};
}

VersionRead readVersion(const VersionSource& source, const ValueLookup& value) {
    const std::string& name = source.value;
    const std::optional<RegValue> v = value(name);
    if (!v && source.fallback != VersionSource::Fallback::None) return fallbackVersion(source, value);
    if (!v) return {std::nullopt, name + " is missing"};
    if (source.packed) return packedVersion(name, *v);
    if (!v->isText()) return {std::nullopt, name + " is " + typeName(v->type) + ", not text"};
    if (v->data.size() > kLongestMatched)
        return {std::nullopt, name + " is " + std::to_string(v->data.size()) + " bytes long, not a version"};
    const std::string text = v->text();
    std::string versionText = text;
    if (!source.pattern.empty() && !ExtractVersion(source.pattern, text, versionText))
        return {std::nullopt, name + "=" + text + " does not fit " + source.pattern};
    if (source.buildInParentheses) versionText = withBuildNumber(versionText);
    auto version = ParseVersion(versionText);
    if (!version) return {std::nullopt, name + "=" + text + " is not a version"};
    return {version, name + "=" + text};
}

// Where a product is looked for: one hive root in one view.
struct Place {
    Hive hive = Hive::LocalMachine;
    std::string prefix;  // "" for the machine, "<SID>\" for a user's hive
    RegView view = RegView::View32;
    std::string shown;   // "HKLM\" or "HKU\<SID>\"
    std::string viewText;  // " [64-bit]", " [32-bit]", or "" for a user
};

std::optional<RegValue> queryValue(const Place& place, const std::string& path, const std::string& name) {
    std::unique_ptr<platform::RegKey> key;
    long r = platform::registry().openKey(place.hive, place.prefix + path, platform::regaccess::Read, place.view, key);
    if (r == platform::regerr::FileNotFound) return std::nullopt;
    if (r != platform::regerr::Success) throw RegistryFailure(place.shown + path + place.viewText + " cannot be opened (error " + std::to_string(r) + ")");
    RegValue v;
    r = key->queryValue(name, v);
    if (r == platform::regerr::FileNotFound) return std::nullopt;
    if (r != platform::regerr::Success)
        throw RegistryFailure(name + " of " + place.shown + path + place.viewText + " cannot be read (error " + std::to_string(r) + ")");
    return v;
}

// The subkeys of the Uninstall key of one place, their values read once, and
// indexes of names and values so that a product's search looks only at the
// keys its anchor names.
class UninstallList {
public:
    UninstallList(const Place& place, std::string base) : place_(place), base_(std::move(base)) {
        std::unique_ptr<platform::RegKey> key;
        long r = platform::registry().openKey(place.hive, place.prefix + base_, platform::regaccess::Read, place.view, key);
        if (r == platform::regerr::FileNotFound) return;
        if (r != platform::regerr::Success) {
            failure_ = place.shown + base_ + place.viewText + " cannot be opened (error " + std::to_string(r) + ")";
            return;
        }
        std::string name;
        for (uint32_t i = 0; (r = key->enumSubKey(i, name)) == platform::regerr::Success; ++i) entries_.push_back({name, {}});
        if (r != platform::regerr::NoMoreItems)
            failure_ = place.shown + base_ + place.viewText + " cannot be listed (error " + std::to_string(r) + ")";
    }

    const Place& place() const { return place_; }
    const std::string& base() const { return base_; }
    const std::string& failure() const { return failure_; }
    size_t size() const { return entries_.size(); }
    const std::string& keyName(size_t i) const { return entries_[i].name; }

    const std::optional<RegValue>& value(size_t i, const std::string& name) {
        static const std::optional<RegValue> none;
        Entry& e = entries_[i];
        if (e.unreadable) return none;
        const std::string key = LCase(name);
        auto it = e.values.find(key);
        if (it != e.values.end()) return it->second;
        try {
            return e.values.emplace(key, queryValue(place_, base_ + "\\" + e.name, name)).first->second;
        } catch (const RegistryFailure& failure) {
            // One entry that cannot be read (an ACL that shuts SYSTEM out) is
            // passed over, said once; the others of the view still count.
            e.unreadable = true;
            WriteW3CLog(kModule, "fncAssessProduct", "ERROR", "Uninstall entry cannot be read: passed over",
                        LogText(failure.what()));
            return none;
        }
    }

    bool unreadable(size_t i) const { return entries_[i].unreadable; }

    // The subkeys whose name (valueName empty) or whose string value starts
    // with `anchor`, case not counting.
    std::vector<size_t> startingWith(const std::string& valueName, const std::string& anchor) {
        auto& index = indexes_[LCase(valueName)];
        if (!index.built) {
            for (size_t i = 0; i < entries_.size(); ++i) {
                if (valueName.empty()) {
                    index.items.emplace_back(FoldedText(entries_[i].name), i);
                } else if (const auto& v = value(i, valueName); v && v->isText()) {
                    index.items.emplace_back(FoldedText(v->text()), i);
                }
            }
            std::sort(index.items.begin(), index.items.end());
            index.built = true;
        }
        const std::u16string key = FoldedText(anchor);
        std::vector<size_t> out;
        for (auto it = std::lower_bound(index.items.begin(), index.items.end(), std::make_pair(key, size_t(0)));
             it != index.items.end() && it->first.compare(0, key.size(), key) == 0; ++it)
            out.push_back(it->second);
        std::sort(out.begin(), out.end());
        return out;
    }

private:
    struct Entry {
        std::string name;
        std::map<std::string, std::optional<RegValue>> values;  // by lower-cased name; nullopt: missing
        bool unreadable = false;
    };
    struct Index {
        bool built = false;
        std::vector<std::pair<std::u16string, size_t>> items;  // folded text (FoldedText), entry
    };
    Place place_;
    std::string base_;
    std::string failure_;
    std::vector<Entry> entries_;
    std::map<std::string, Index> indexes_;
};

struct Install {
    std::string where;
    VersionRead read;
    std::string owner;  // "" for the machine, the user's SID: whose install it is
};

// The entries a product's search passed over as no installs: the first one
// named, the others counted, so that a computer full of hotfixes writes one
// line, not a hundred.
struct PassedOver {
    std::string first;
    size_t count = 0;
    void add(const std::string& what) {
        if (count++ == 0) first = what;
    }
    std::string text() const {
        if (count == 0) return "";
        return "; passed over " + first + (count > 1 ? " and " + std::to_string(count - 1) + " more" : "");
    }
};

class Assessor {
public:
    Assessor() : is64_(platform::sys().is64BitWindows()) {}

    ProductFinding assess(size_t index, const Product& p) {
        ProductFinding f;
        f.product = index;
        const Detection& d = p.detect;
        std::vector<Place> places = placesFor(d);
        if (p.arch == Product::Arch::X64 && !is64_) {
            f.where = "a 64-bit product on 32-bit Windows";
            return f;
        }
        try {
            std::vector<Install> installs;
            PassedOver passed;
            for (const Place& place : places) {
                if (d.kind == Detection::Kind::Uninstall) findInUninstall(d, place, installs, passed);
                else findKey(d, place, installs);
            }
            decide(p, d, places, installs, f);
            if (f.state != ProductState::UpdateNeeded && f.state != ProductState::Conflicting &&
                d.scope == Detection::Scope::Users)
                unreadableUser(f);
            f.evidence += passed.text();
        } catch (const RegistryFailure& e) {
            f.state = ProductState::Failed;
            f.evidence = e.what();
        }
        return f;
    }

private:
    static std::string uninstallBase(const Place& place) {
        return std::string(place.hive == Hive::Users ? "Software" : "SOFTWARE") + "\\Microsoft\\Windows\\CurrentVersion\\Uninstall";
    }

    // A user whose hive could not be loaded may have the product, older:
    // nothing else found decides for them.
    void unreadableUser(ProductFinding& f) {
        for (const auto& u : hives_.list()) {
            if (u.failure.empty()) continue;
            f.state = ProductState::HiveUnreadable;
            f.where = "HKU\\" + u.sid + " (" + u.file + ")";
            f.evidence = "the hive could not be loaded, " + u.failure;
            return;
        }
    }

    std::vector<Place> placesFor(const Detection& d) {
        std::vector<Place> out;
        if (d.scope == Detection::Scope::Users) {
            for (const auto& u : hives_.list())
                if (u.failure.empty())
                    out.push_back({Hive::Users, u.key + "\\", RegView::Default, "HKU\\" + u.sid + "\\",
                                   u.file.empty() ? "" : " (not logged on)"});
            return out;
        }
        auto add = [&](RegView view, const char* text) {
            out.push_back({Hive::LocalMachine, "", view, "HKLM\\", std::string(" [") + text + "]"});
        };
        // 32-bit Windows has one registry: the 32-bit view is all of it.
        if ((d.view == Detection::View::Bits64 || d.view == Detection::View::Both) && is64_) add(RegView::View64, "64-bit");
        if (d.view == Detection::View::Bits32 || d.view == Detection::View::Both) add(RegView::View32, "32-bit");
        return out;
    }

    UninstallList& listOf(const Place& place) {
        const std::string key = place.shown + "|" + std::to_string(static_cast<int>(place.view));
        auto it = lists_.find(key);
        if (it == lists_.end()) it = lists_.emplace(key, std::make_unique<UninstallList>(place, uninstallBase(place))).first;
        return *it->second;
    }

    void findInUninstall(const Detection& d, const Place& place, std::vector<Install>& installs, PassedOver& passed) {
        UninstallList& list = listOf(place);
        if (!list.failure().empty()) throw RegistryFailure(list.failure());
        // The narrowest anchor: the key name, else a text test that starts with plain text.
        std::optional<std::vector<size_t>> candidates;
        if (d.hasKeyName && !d.keyName.Anchor().empty()) candidates = list.startingWith("", d.keyName.Anchor());
        for (const auto& t : d.tests) {
            if (candidates || t.kind != ValueTest::Kind::Text || t.text.Anchor().empty()) continue;
            candidates = list.startingWith(t.value, t.text.Anchor());
        }
        if (!candidates) {
            candidates.emplace();
            for (size_t i = 0; i < list.size(); ++i) candidates->push_back(i);
        }
        for (size_t i : *candidates) {
            if (d.hasKeyName && !d.keyName.Holds(list.keyName(i))) continue;
            bool all = true;
            for (const auto& t : d.tests) all = all && holds(t, list.value(i, t.value));
            if (!all || list.unreadable(i)) continue;
            const std::string notInstall =
                NotAnInstall(d, [&](const std::string& name) -> const std::optional<RegValue>& { return list.value(i, name); });
            if (!notInstall.empty() && !list.unreadable(i)) {
                passed.add(list.keyName(i) + place.viewText + " (" + notInstall + ")");
                continue;
            }
            VersionRead read = readVersion(d.version, [&](const std::string& name) { return list.value(i, name); });
            if (list.unreadable(i)) continue;
            installs.push_back({place.shown + list.base() + "\\" + list.keyName(i) + place.viewText, std::move(read), place.prefix});
        }
    }

    void findKey(const Detection& d, const Place& place, std::vector<Install>& installs) {
        std::unique_ptr<platform::RegKey> key;
        long r = platform::registry().openKey(place.hive, place.prefix + d.keyPath, platform::regaccess::Read, place.view, key);
        if (r == platform::regerr::FileNotFound) return;
        if (r != platform::regerr::Success)
            throw RegistryFailure(place.shown + d.keyPath + place.viewText + " cannot be opened (error " + std::to_string(r) + ")");
        for (const auto& t : d.tests)
            if (!holds(t, queryValue(place, d.keyPath, t.value))) return;
        installs.push_back({place.shown + d.keyPath + place.viewText, readVersion(d.version, [&](const std::string& name) { return queryValue(place, d.keyPath, name); }),
                            place.prefix});
    }

    static void decide(const Product& p, const Detection& d, const std::vector<Place>& places,
                       const std::vector<Install>& installs, ProductFinding& f) {
        if (installs.empty()) {
            f.state = ProductState::NotInstalled;
            if (places.empty() && d.scope == Detection::Scope::Machine) {
                f.where = "no 64-bit view on 32-bit Windows";
            } else if (d.scope == Detection::Scope::Users) {
                f.where = "searched HKU\\<" + std::to_string(places.size()) + " users>\\" +
                          (d.kind == Detection::Kind::Uninstall ? std::string("Software\\Microsoft\\Windows\\CurrentVersion\\Uninstall") : d.keyPath);
            } else {
                std::string views;
                for (const auto& place : places) views += (views.empty() ? "" : ", ") + place.viewText.substr(2, place.viewText.size() - 3);
                f.where = "searched HKLM\\" +
                          (d.kind == Detection::Kind::Uninstall ? std::string("SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall") : d.keyPath) +
                          " [" + views + "]";
            }
            return;
        }
        const ProductVersion target = *ParseVersion(p.update.installedVersion);
        const std::string against = ", update " + p.update.installedVersion;
        const Install* older = nullptr;
        const Install* unknown = nullptr;
        for (const auto& i : installs) {
            if (!i.read.version) unknown = unknown ? unknown : &i;
            else if (!older && CompareVersions(*i.read.version, target) < 0) older = &i;
        }
        // One install older and another of the same owner (the machine, or
        // one user) at or above the update: installing it could put an old
        // version over the live one. The deployment step must not guess which
        // is live. Users are owners of their own: one behind needs the update.
        for (const auto& o : installs) {
            if (!o.read.version || CompareVersions(*o.read.version, target) >= 0) continue;
            for (const auto& c : installs) {
                if (c.owner != o.owner || !c.read.version || CompareVersions(*c.read.version, target) < 0) continue;
                f.state = ProductState::Conflicting;
                f.where = o.where;
                f.other = c.where;
                f.evidence = o.read.evidence + "; " + c.where + " " + c.read.evidence + against;
                return;
            }
        }
        const Install& decisive = older ? *older : unknown ? *unknown : installs.front();
        f.state = older ? ProductState::UpdateNeeded : unknown ? ProductState::Unknown : ProductState::UpToDate;
        f.where = decisive.where;
        f.evidence = decisive.read.evidence + (decisive.read.version ? against : "");
    }

    bool is64_;
    UserHives hives_;
    std::map<std::string, std::unique_ptr<UninstallList>> lists_;
};

}  // namespace

const char* StateText(ProductState state) {
    switch (state) {
    case ProductState::NotInstalled: return "Not installed";
    case ProductState::UpToDate: return "Up to date";
    case ProductState::UpdateNeeded: return "Update needed";
    case ProductState::Unknown: return "Version unknown";
    case ProductState::Failed: return "Assessment failed";
    case ProductState::Conflicting: return "Conflicting installs";
    case ProductState::HiveUnreadable: return "User hive not readable";
    }
    return "";
}

std::vector<bool> SelectVendors(const Catalogue& catalogue, const std::string& selected) {
    std::vector<bool> chosen(catalogue.vendors.size(), false);
    std::set<std::string> reported;
    size_t start = 0;
    while (start <= selected.size()) {
        size_t comma = selected.find(',', start);
        if (comma == std::string::npos) comma = selected.size();
        const std::string name = trim(std::string_view(selected).substr(start, comma - start));
        start = comma + 1;
        if (name.empty()) continue;
        bool known = false;
        for (size_t v = 0; v < catalogue.vendors.size(); ++v)
            if (WildcardEquals(name, catalogue.vendors[v].id) || WildcardEquals(name, catalogue.vendors[v].name))
                known = chosen[v] = true;
        if (!known && reported.insert(LCase(name)).second)
            WriteW3CLog(kModule, "subAutoDeployment", "INFO", "Selected vendor is not in the product list", LogText(name));
    }
    return chosen;
}

std::vector<ProductFinding> AssessProducts(const Catalogue& catalogue, const std::vector<bool>& selected) {
    for (size_t v = 0; v < catalogue.vendors.size(); ++v)
        if (!selected[v] && catalogue.vendors[v].products > 0)
            WriteW3CLog(kModule, "subAutoDeployment", "INFO", "Vendor not selected: its products are not assessed",
                        LogText(catalogue.vendors[v].name), std::to_string(catalogue.vendors[v].products));
    std::vector<ProductFinding> findings;
    Assessor assessor;
    for (size_t i = 0; i < catalogue.products.size(); ++i) {
        const Product& p = catalogue.products[i];
        if (!selected[p.vendor]) continue;
        ProductFinding f = assessor.assess(i, p);
        WriteW3CLog(kModule, "fncAssessProduct", f.state == ProductState::Failed ? "ERROR" : "INFO",
                    std::string(StateText(f.state)) + ": " + LogText(p.name), p.id, LogText(f.where), LogText(f.evidence));
        findings.push_back(std::move(f));
    }
    return findings;
}

}  // namespace kpm

#include "platform/sim/sim_registry.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <fstream>
#include <sstream>

#include "platform/automation.h"
#include "platform/utf.h"
#include "platform/sim/sim_machine.h"
#include "platform/sim/sim_state.h"

namespace platform::sim {

namespace {

constexpr std::string_view kHeader5 = "Windows Registry Editor Version 5.00";
constexpr std::string_view kHeader4 = "REGEDIT4";

struct HiveName {
    Hive hive;
    std::string_view full, abbrev;
};
constexpr HiveName kHives[] = {
    {Hive::LocalMachine, "HKEY_LOCAL_MACHINE", "HKLM"},
    {Hive::CurrentUser, "HKEY_CURRENT_USER", "HKCU"},
    {Hive::ClassesRoot, "HKEY_CLASSES_ROOT", "HKCR"},
    {Hive::Users, "HKEY_USERS", "HKU"},
};

std::string_view hiveName(Hive h) {
    for (const auto& n : kHives)
        if (n.hive == h) return n.full;
    return "HKEY_LOCAL_MACHINE";
}

std::string_view trimRight(std::string_view s) {
    while (!s.empty() && (s.back() == ' ' || s.back() == '\t' || s.back() == '\r')) s.remove_suffix(1);
    return s;
}
std::string_view trimLeft(std::string_view s) {
    while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
    return s;
}

int hexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
}

// Text types are UTF-16LE in a version 5.00 file and UTF-8 in the document,
// as the file's quoted texts are; the program sees them in the machine's code
// page (SimRegKey converts).
bool isTextType(uint32_t type) {
    return type == regtype::String || type == regtype::ExpandString ||
           type == regtype::MultiString;
}
std::vector<uint8_t> fromUtf16(const std::vector<uint8_t>& in) {
    std::u16string units;
    for (size_t i = 0; i + 1 < in.size(); i += 2) units += static_cast<char16_t>(in[i] | in[i + 1] << 8);
    const std::string utf8 = utf8FromUtf16(units);
    return std::vector<uint8_t>(utf8.begin(), utf8.end());
}
std::vector<uint8_t> toUtf16(const std::vector<uint8_t>& in) {
    std::u16string units;
    if (!utf16FromUtf8(std::string_view(reinterpret_cast<const char*>(in.data()), in.size()), units))
        units.assign(in.begin(), in.end());  // not UTF-8: the bytes of an ANSI file
    std::vector<uint8_t> out;
    for (char16_t u : units) {
        out.push_back(static_cast<uint8_t>(u & 0xFF));
        out.push_back(static_cast<uint8_t>(u >> 8));
    }
    return out;
}

// Key and value names compare as Windows compares them, case not counting
// in any script; most are ASCII and need no more than toupper.
void appendUpper(std::string& out, std::string_view utf8) {
    const size_t at = out.size();
    for (char c : utf8) {
        if (static_cast<unsigned char>(c) >= 0x80) {
            out.resize(at);
            out += CodePage::upcaseUtf8(utf8);
            return;
        }
        out += c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
    }
}
std::string upperName(std::string_view utf8) {
    std::string out;
    appendUpper(out, utf8);
    return out;
}
bool sameName(std::string_view a, std::string_view b) {
    if (iequals(a, b)) return true;
    return !(isAscii(a) && isAscii(b)) && upperName(a) == upperName(b);
}

// A file in ANSI (an older scenario, a hand-made hive) read in the code page;
// written back, it is UTF-8.
std::string asUtf8(const std::string& text, const CodePage& codePage) {
    const bool utf16 = text.rfind("\xFF\xFE", 0) == 0 || text.rfind("\xFE\xFF", 0) == 0;  // refused by the reader
    return utf16 || isUtf8(text) ? text : codePage.toUtf8(text);
}

std::vector<uint8_t> bytesOf(const std::string& s) { return std::vector<uint8_t>(s.begin(), s.end()); }
std::string_view textOf(const std::vector<uint8_t>& v) { return {reinterpret_cast<const char*>(v.data()), v.size()}; }

std::string escapeString(std::string_view s) {
    std::string out;
    for (char c : s) {
        if (c == '\\' || c == '"') out += '\\';
        out += c;
    }
    return out;
}

struct ParseError {
    size_t line;
    std::string what;
};

// Reads a quoted string at the start of s; returns the text after it.
std::string_view readQuoted(std::string_view s, std::string& out, size_t line) {
    // s[0] is the opening quote
    size_t i = 1;
    out.clear();
    for (; i < s.size(); ++i) {
        char c = s[i];
        if (c == '"') return s.substr(i + 1);
        if (c == '\\') {
            if (i + 1 >= s.size()) break;
            char n = s[i + 1];
            if (n != '\\' && n != '"')
                throw ParseError{line, std::string("bad escape \\") + n +
                                           " in a quoted text (write \\\\ for a backslash)"};
            out += n;
            ++i;
            continue;
        }
        out += c;
    }
    throw ParseError{line, "quoted text is not closed"};
}

}  // namespace

// ---------------------------------------------------------------- RegDocument

RegDocument RegDocument::empty() {
    RegDocument d;
    d.preamble_ = std::string(kHeader5) + d.eol_ + d.eol_;
    return d;
}

RegDocument RegDocument::parse(std::string_view text) {
    if (text.size() >= 2 && ((static_cast<uint8_t>(text[0]) == 0xFF && static_cast<uint8_t>(text[1]) == 0xFE) ||
                             (static_cast<uint8_t>(text[0]) == 0xFE && static_cast<uint8_t>(text[1]) == 0xFF)))
        throw MachineError("registry.reg line 1: UTF-16 text is not supported; save the file as UTF-8");
    if (trimLeft(trimRight(text)).find_first_not_of("\r\n \t") == std::string_view::npos)
        return empty();

    RegDocument d;
    // Split into lines that keep their line ends.
    std::vector<std::string_view> raws;
    for (size_t pos = 0; pos < text.size();) {
        size_t lf = text.find('\n', pos);
        size_t next = lf == std::string_view::npos ? text.size() : lf + 1;
        raws.push_back(text.substr(pos, next - pos));
        pos = next;
    }
    auto content = [](std::string_view raw) {
        if (!raw.empty() && raw.back() == '\n') raw.remove_suffix(1);
        if (!raw.empty() && raw.back() == '\r') raw.remove_suffix(1);
        return raw;
    };
    if (raws[0].size() >= 2 && raws[0].substr(raws[0].size() - 2) != "\r\n" && raws[0].back() == '\n')
        d.eol_ = "\n";

    try {
        std::string_view first = content(raws[0]);
        if (first.substr(0, 3) == "\xEF\xBB\xBF") first.remove_prefix(3);
        first = trimRight(first);
        if (first == kHeader4) d.unicodeFormat_ = false;
        else if (first != kHeader5)
            throw ParseError{1, "expected the header \"Windows Registry Editor Version 5.00\""};
        d.preamble_ = std::string(raws[0]);

        for (size_t i = 1; i < raws.size(); ++i) {
            const size_t lineNo = i + 1;
            std::string_view line = trimLeft(content(raws[i]));
            std::string_view trimmed = trimRight(line);
            if (trimmed.empty() || trimmed.front() == ';') {
                if (d.keys_.empty()) d.preamble_ += raws[i];
                else d.keys_.back().items.push_back(Item{false, {}, std::string(raws[i])});
                continue;
            }
            if (trimmed.front() == '[') {
                if (trimmed.back() != ']') throw ParseError{lineNo, "key line does not end with ]"};
                std::string_view inner = trimmed.substr(1, trimmed.size() - 2);
                if (!inner.empty() && inner.front() == '-')
                    throw ParseError{lineNo, "deleting keys ([-...]) is not supported"};
                std::vector<std::string> parts;
                size_t slash = inner.find('\\');
                std::string_view hive = inner.substr(0, slash);
                Key k;
                bool found = false;
                for (const auto& n : kHives)
                    if (iequals(hive, n.full) || iequals(hive, n.abbrev)) {
                        k.hive = n.hive;
                        found = true;
                    }
                if (!found) throw ParseError{lineNo, "unknown root key \"" + std::string(hive) + "\""};
                if (slash != std::string_view::npos &&
                    !SimRegistry::splitPath(inner.substr(slash + 1), k.path))
                    throw ParseError{lineNo, "empty key name in the path"};
                k.headerRaw = std::string(raws[i]);
                d.keys_.push_back(std::move(k));
                continue;
            }
            if (trimmed.front() != '"' && trimmed.front() != '@')
                throw ParseError{lineNo, "expected [key], \"name\"=value, @=value or ; comment"};
            if (d.keys_.empty()) throw ParseError{lineNo, "value before the first [key]"};

            Item item;
            item.isValue = true;
            item.raw = std::string(raws[i]);
            std::string_view rest;
            if (trimmed.front() == '@') rest = trimmed.substr(1);
            else rest = readQuoted(trimmed, item.value.name, lineNo);
            rest = trimLeft(rest);
            if (rest.empty() || rest.front() != '=') throw ParseError{lineNo, "expected = after the value name"};
            rest = trimLeft(rest.substr(1));

            RegValue& v = item.value.data;
            if (!rest.empty() && rest.front() == '"') {
                std::string s;
                std::string_view after = readQuoted(rest, s, lineNo);
                if (!trimLeft(after).empty()) throw ParseError{lineNo, "text after the closing quote"};
                v = RegValue::string(s);
            } else if (rest.substr(0, 6) == "dword:") {
                std::string_view digits = rest.substr(6);
                uint32_t x = 0;
                if (digits.empty() || digits.size() > 8) throw ParseError{lineNo, "dword: needs 1 to 8 hex digits"};
                for (char c : digits) {
                    int h = hexDigit(c);
                    if (h < 0) throw ParseError{lineNo, "dword: needs 1 to 8 hex digits"};
                    x = x * 16 + static_cast<uint32_t>(h);
                }
                v = RegValue::dword(x);
            } else if (rest.substr(0, 3) == "hex") {
                rest.remove_prefix(3);
                v.type = regtype::Binary;
                if (!rest.empty() && rest.front() == '(') {
                    size_t close = rest.find(')');
                    if (close == std::string_view::npos || close == 1 || close > 9)
                        throw ParseError{lineNo, "hex(type): needs a hex type number"};
                    uint32_t t = 0;
                    for (char c : rest.substr(1, close - 1)) {
                        int h = hexDigit(c);
                        if (h < 0) throw ParseError{lineNo, "hex(type): needs a hex type number"};
                        t = t * 16 + static_cast<uint32_t>(h);
                    }
                    v.type = t;
                    rest.remove_prefix(close + 1);
                }
                if (rest.empty() || rest.front() != ':') throw ParseError{lineNo, "expected : after hex"};
                rest.remove_prefix(1);
                // The bytes, over continuation lines ending in a backslash.
                std::string bytes(rest);
                while (!bytes.empty() && bytes.back() == '\\') {
                    bytes.pop_back();
                    if (i + 1 >= raws.size()) throw ParseError{lineNo, "continued value at the end of the file"};
                    ++i;
                    item.raw += raws[i];
                    bytes += trimRight(content(raws[i]));
                }
                size_t start = 0;
                while (start <= bytes.size()) {
                    size_t comma = bytes.find(',', start);
                    std::string_view tok = trimRight(trimLeft(std::string_view(bytes).substr(
                        start, (comma == std::string::npos ? bytes.size() : comma) - start)));
                    if (!tok.empty()) {
                        if (tok.size() > 2 || hexDigit(tok[0]) < 0 ||
                            (tok.size() == 2 && hexDigit(tok[1]) < 0))
                            throw ParseError{i + 1, "bad byte \"" + std::string(tok) + "\" in hex data"};
                        int b = hexDigit(tok[0]);
                        if (tok.size() == 2) b = b * 16 + hexDigit(tok[1]);
                        v.data.push_back(static_cast<uint8_t>(b));
                    } else if (comma != std::string::npos) {
                        throw ParseError{i + 1, "empty byte in hex data"};
                    }
                    if (comma == std::string::npos) break;
                    start = comma + 1;
                }
                if (d.unicodeFormat_ && isTextType(v.type)) v.data = fromUtf16(v.data);
            } else if (rest == "-") {
                throw ParseError{lineNo, "deleting values (=-) is not supported"};
            } else {
                throw ParseError{lineNo, "unknown value data (expected \"text\", dword:, hex: or hex(n):)"};
            }
            d.keys_.back().items.push_back(std::move(item));
        }
    } catch (const ParseError& e) {
        throw MachineError("registry.reg line " + std::to_string(e.line) + ": " + e.what);
    }
    for (size_t i = 0; i < d.keys_.size(); ++i) d.indexKey(i);
    return d;
}

std::string RegDocument::indexName(Hive hive, const std::vector<std::string>& path, size_t count) {
    std::string name = std::to_string(static_cast<int>(hive));
    for (size_t i = 0; i < count; ++i) {
        name += '\\';
        appendUpper(name, path[i]);
    }
    return name;
}

void RegDocument::indexKey(size_t at) {
    const Key& k = keys_[at];
    definitions_[indexName(k.hive, k.path, k.path.size())].push_back(at);
    // Every key on the path exists; each is its parent's subkey (first spelling kept).
    for (size_t n = 1; n <= k.path.size(); ++n) {
        if (!existing_.insert(indexName(k.hive, k.path, n)).second) continue;
        children_[indexName(k.hive, k.path, n - 1)].push_back(k.path[n - 1]);
    }
}

// Listed as Windows keeps them: ordered by name without regard to case,
// whatever order the machine's file or the pass made them in.
std::vector<std::string> RegDocument::subKeys(Hive hive, const std::vector<std::string>& path) const {
    auto it = children_.find(indexName(hive, path, path.size()));
    if (it == children_.end()) return {};
    std::vector<std::string> names = it->second;
    std::stable_sort(names.begin(), names.end(), [](const std::string& a, const std::string& b) {
        return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
            return std::toupper(static_cast<unsigned char>(x)) < std::toupper(static_cast<unsigned char>(y));
        });
    });
    return names;
}

std::string RegDocument::renderHeader(const Key& k) const {
    std::string s = "[" + std::string(hiveName(k.hive));
    for (const auto& p : k.path) s += "\\" + p;
    return s + "]" + eol_;
}

std::string RegDocument::renderValue(const Value& v) const {
    std::string line = v.name.empty() ? "@=" : "\"" + escapeString(v.name) + "\"=";
    const RegValue& r = v.data;
    if (r.type == regtype::String && !r.data.empty() && r.data.back() == 0) {
        std::string s(r.data.begin(), r.data.end() - 1);
        if (s.find('\0') == std::string::npos) return line + "\"" + escapeString(s) + "\"" + eol_;
    }
    if (r.type == regtype::Dword && r.data.size() == 4) {
        uint32_t x = 0;
        for (int i = 3; i >= 0; --i) x = (x << 8) | r.data[static_cast<size_t>(i)];
        char buf[16];
        std::snprintf(buf, sizeof buf, "dword:%08x", x);
        return line + buf + eol_;
    }
    if (r.type == regtype::Binary) {
        line += "hex:";
    } else {
        char buf[24];
        std::snprintf(buf, sizeof buf, "hex(%x):", r.type);
        line += buf;
    }
    std::vector<uint8_t> bytes = unicodeFormat_ && isTextType(r.type) ? toUtf16(r.data) : r.data;
    // regedit's layout: lines of at most 77 characters before the backslash,
    // continuation lines indented by two blanks.
    std::string out;
    for (size_t i = 0; i < bytes.size(); ++i) {
        if (line.size() + 3 > 77) {
            out += line + "\\" + eol_;
            line = "  ";
        }
        char buf[4];
        std::snprintf(buf, sizeof buf, "%02x", bytes[i]);
        line += buf;
        if (i + 1 < bytes.size()) line += ',';
    }
    return out + line + eol_;
}

std::string RegDocument::serialize() const {
    std::string out = preamble_;
    auto ensureEol = [&] {
        if (!out.empty() && out.back() != '\n') out += eol_;
    };
    for (const auto& k : keys_) {
        if (k.headerRaw.empty()) {
            ensureEol();
            out += renderHeader(k);
        } else {
            out += k.headerRaw;
        }
        for (const auto& item : k.items) {
            if (!item.raw.empty()) {
                out += item.raw;
            } else if (item.isValue) {
                ensureEol();
                out += renderValue(item.value);
            }
        }
    }
    return out;
}

RegDocument::Key* RegDocument::lastKey(Hive hive, const std::vector<std::string>& path) {
    auto it = definitions_.find(indexName(hive, path, path.size()));
    return it == definitions_.end() ? nullptr : &keys_[it->second.back()];
}

bool RegDocument::keyExists(Hive hive, const std::vector<std::string>& path) const {
    return path.empty() || existing_.count(indexName(hive, path, path.size())) > 0;
}

namespace {
// True when the text ends with a line that is blank.
bool endsWithBlankLine(std::string_view s) {
    if (s.empty() || s.back() != '\n') return false;
    s.remove_suffix(1);
    if (!s.empty() && s.back() == '\r') s.remove_suffix(1);
    size_t lf = s.rfind('\n');
    std::string_view last = lf == std::string_view::npos ? s : s.substr(lf + 1);
    return trimRight(trimLeft(last)).empty();
}
}  // namespace

RegDocument::Key& RegDocument::appendKey(Hive hive, const std::vector<std::string>& path) {
    // regedit separates keys by a blank line: make sure one precedes the new key.
    const std::string* tail = &preamble_;
    bool generatedTail = false;
    if (!keys_.empty()) {
        const Key& prev = keys_.back();
        tail = &prev.headerRaw;
        generatedTail = prev.headerRaw.empty();
        for (const auto& item : prev.items) {
            generatedTail = item.raw.empty();
            if (!generatedTail) tail = &item.raw;
        }
    }
    if (generatedTail || !endsWithBlankLine(*tail)) {
        std::string blank = eol_;
        if (!generatedTail && !tail->empty() && tail->back() != '\n') blank += eol_;
        if (keys_.empty()) preamble_ += blank;
        else keys_.back().items.push_back(Item{false, {}, blank});
    }
    Key k;
    k.hive = hive;
    k.path = path;
    k.items.push_back(Item{false, {}, eol_});
    keys_.push_back(std::move(k));
    indexKey(keys_.size() - 1);
    return keys_.back();
}

bool RegDocument::createKey(Hive hive, const std::vector<std::string>& path) {
    if (keyExists(hive, path)) return false;
    appendKey(hive, path);
    return true;
}

bool RegDocument::findValue(Hive hive, const std::vector<std::string>& path,
                            std::string_view name, RegValue& out) const {
    bool found = false;
    auto defs = definitions_.find(indexName(hive, path, path.size()));
    if (defs == definitions_.end()) return false;
    // Later definitions win, as an import applies them in order.
    for (size_t at : defs->second) {
        const Key& k = keys_[at];
        for (const auto& item : k.items)
            if (item.isValue && sameName(item.value.name, name)) {
                out = item.value.data;
                found = true;
            }
    }
    return found;
}

void RegDocument::setValue(Hive hive, const std::vector<std::string>& path, std::string_view name,
                           const RegValue& value) {
    Item* existing = nullptr;
    auto defs = definitions_.find(indexName(hive, path, path.size()));
    for (size_t at : defs == definitions_.end() ? std::vector<size_t>{} : defs->second) {
        Key& k = keys_[at];
        for (auto& item : k.items)
            if (item.isValue && sameName(item.value.name, name)) existing = &item;
    }
    if (existing) {
        // The same value again leaves its text as it was.
        if (existing->value.data.type == value.type && existing->value.data.data == value.data) return;
        existing->value.data = value;
        existing->raw.clear();
        return;
    }
    // A key that exists only as a parent of others gets its own entry.
    Key* key = lastKey(hive, path);
    if (!key) key = &appendKey(hive, path);
    size_t at = 0;
    for (size_t i = 0; i < key->items.size(); ++i)
        if (key->items[i].isValue) at = i + 1;
    Item item;
    item.isValue = true;
    item.value.name = std::string(name);
    item.value.data = value;
    key->items.insert(key->items.begin() + static_cast<std::ptrdiff_t>(at), std::move(item));
}

// ---------------------------------------------------------------- SimRegistry

namespace {

// The specific rights an access mask grants (generic rights and
// MAXIMUM_ALLOWED spelled out; the machine's user may do anything).
uint32_t grantedAccess(uint32_t access) {
    constexpr uint32_t kMaximumAllowed = 0x02000000, kGenericAll = 0x10000000,
                       kGenericExecute = 0x20000000, kGenericWrite = 0x40000000,
                       kGenericRead = 0x80000000, kKeyWrite = 0x20006;
    if (access & (kMaximumAllowed | kGenericAll)) access |= regaccess::AllAccess;
    if (access & (kGenericRead | kGenericExecute)) access |= regaccess::Read;
    if (access & kGenericWrite) access |= kKeyWrite;
    return access;
}

class SimRegKey : public RegKey {
public:
    SimRegKey(SimRegistry& reg, Hive hive, std::vector<std::string> path, uint32_t access,
              RegView view)
        : reg_(reg), doc_(reg.document()), hive_(hive), path_(std::move(path)), access_(grantedAccess(access)), view_(view) {}
    // A key of a loaded user hive: read only, never written to registry.reg.
    SimRegKey(SimRegistry& reg, RegDocument& hiveDoc, std::vector<std::string> path, uint32_t access)
        : reg_(reg), doc_(hiveDoc), hive_(Hive::CurrentUser), path_(std::move(path)),
          access_(grantedAccess(access) & regaccess::Read), view_(RegView::Default), loaded_(true) {}

    long queryValue(std::string_view name, RegValue& out) override {
        if (!(access_ & regaccess::QueryValue)) return regerr::AccessDenied;
        if (!doc_.findValue(hive_, path_, codePage().toUtf8(name), out)) return regerr::FileNotFound;
        if (isTextType(out.type)) out.data = bytesOf(codePage().fromUtf8(textOf(out.data)));
        return regerr::Success;
    }

    long setValue(std::string_view name, const RegValue& value) override {
        if (!(access_ & regaccess::SetValue) || loaded_) return regerr::AccessDenied;
        if (name.size() > 16383) return regerr::InvalidParameter;
        RegValue stored = value;
        if (isTextType(value.type)) stored.data = bytesOf(codePage().toUtf8(textOf(value.data)));
        reg_.document().setValue(hive_, path_, codePage().toUtf8(name), stored);
        return reg_.save() ? regerr::Success : kIoFailed;
    }

    long createSubKey(std::string_view name, std::unique_ptr<RegKey>& out) override {
        constexpr uint32_t kCreateSubKey = 0x0004;
        if (!(access_ & kCreateSubKey) || loaded_) return regerr::AccessDenied;
        std::vector<std::string> rel;
        if (!SimRegistry::splitPath(codePage().toUtf8(name), rel)) return regerr::InvalidParameter;
        std::vector<std::string> full = path_;
        full.insert(full.end(), rel.begin(), rel.end());
        // A key below a hive root is still subject to the view; below any
        // other key the view was applied when that key was opened.
        if (path_.empty()) full = reg_.redirect(hive_, std::move(full), view_);
        if (reg_.document().createKey(hive_, full) && !reg_.save()) return kIoFailed;
        out = std::make_unique<SimRegKey>(reg_, hive_, std::move(full), regaccess::AllAccess, view_);
        return regerr::Success;
    }

    long enumSubKey(uint32_t index, std::string& name) override {
        constexpr uint32_t kEnumerateSubKeys = 0x0008;
        if (!(access_ & kEnumerateSubKeys)) return regerr::AccessDenied;
        // The names as they were when the enumeration began, as a caller
        // walking the indexes of an unchanged key sees them.
        if (index == 0 || !listed_) {
            subKeys_ = doc_.subKeys(hive_, path_);
            // The loaded hives are HKEY_USERS' subkeys too.
            if (hive_ == Hive::Users && path_.empty() && !loaded_)
                for (const auto& name : reg_.loadedHives()) subKeys_.push_back(name);
            listed_ = true;
        }
        if (index >= subKeys_.size()) return regerr::NoMoreItems;
        name = codePage().fromUtf8(subKeys_[index]);
        return regerr::Success;
    }

    static constexpr long kIoFailed = 1016;  // ERROR_REGISTRY_IO_FAILED

private:
    const CodePage& codePage() const { return reg_.state().codePage; }

    SimRegistry& reg_;
    RegDocument& doc_;
    Hive hive_;
    std::vector<std::string> path_;
    uint32_t access_;
    RegView view_;
    std::vector<std::string> subKeys_;
    bool listed_ = false;
    bool loaded_ = false;
};

}  // namespace

SimRegistry::SimRegistry(MachineState& state, std::filesystem::path file)
    : state_(state), file_(std::move(file)) {
    std::error_code ec;
    if (!std::filesystem::exists(file_, ec)) {
        doc_ = RegDocument::empty();
        return;
    }
    std::ifstream in(file_, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    if (!in) throw MachineError("registry.reg cannot be read: " + file_.string());
    doc_ = RegDocument::parse(asUtf8(text.str(), state_.codePage));
}

bool SimRegistry::is64BitOS() const { return state_.config.is64BitOS; }

bool SimRegistry::splitPath(std::string_view path, std::vector<std::string>& out) {
    out.clear();
    if (!path.empty() && path.back() == '\\') path.remove_suffix(1);
    if (path.empty()) return true;
    size_t start = 0;
    while (true) {
        size_t slash = path.find('\\', start);
        std::string_view part = path.substr(start, slash == std::string_view::npos ? slash : slash - start);
        if (part.empty()) return false;
        out.emplace_back(part);
        if (slash == std::string_view::npos) return true;
        start = slash + 1;
    }
}

namespace {

// The class registrations: they keep a 32-bit view of their own wherever
// the classes are shared.
bool isClassRegistration(const std::string& name) {
    static constexpr const char* kRedirected[] = {"CLSID", "Interface", "DirectShow", "Media Type", "MediaFoundation"};
    for (const char* kin : kRedirected)
        if (iequals(name, kin)) return true;
    return false;
}

// The keys below HKLM\SOFTWARE that Windows 7 and later share between the
// two views (Microsoft's "Registry Keys Affected by WOW64").
bool sharedBetweenViews(const std::vector<std::string>& path) {
    static constexpr const char* kShared[] = {
        "Classes", "Clients", "Policies", "RegisteredApplications",
        "Microsoft\\COM3", "Microsoft\\Cryptography\\Calais\\Current", "Microsoft\\Cryptography\\Calais\\Readers",
        "Microsoft\\Cryptography\\Services", "Microsoft\\CTF\\SystemShared", "Microsoft\\CTF\\TIP", "Microsoft\\DFS",
        "Microsoft\\Driver Signing", "Microsoft\\EnterpriseCertificates", "Microsoft\\EventSystem", "Microsoft\\MSMQ",
        "Microsoft\\Non-Driver Signing", "Microsoft\\Notepad\\DefaultFonts", "Microsoft\\OLE", "Microsoft\\RAS",
        "Microsoft\\RPC", "Microsoft\\Shared Tools\\MSInfo", "Microsoft\\SystemCertificates",
        "Microsoft\\TermServLicensing", "Microsoft\\TransactionServer",
        "Microsoft\\Windows\\CurrentVersion\\App Paths", "Microsoft\\Windows\\CurrentVersion\\Control Panel\\Cursors\\Schemes",
        "Microsoft\\Windows\\CurrentVersion\\Explorer\\AutoplayHandlers", "Microsoft\\Windows\\CurrentVersion\\Explorer\\DriveIcons",
        "Microsoft\\Windows\\CurrentVersion\\Explorer\\KindMap", "Microsoft\\Windows\\CurrentVersion\\Group Policy",
        "Microsoft\\Windows\\CurrentVersion\\Policies", "Microsoft\\Windows\\CurrentVersion\\PreviewHandlers",
        "Microsoft\\Windows\\CurrentVersion\\Setup", "Microsoft\\Windows\\CurrentVersion\\Telephony",
        "Microsoft\\Windows NT\\CurrentVersion\\Console", "Microsoft\\Windows NT\\CurrentVersion\\FontDpi",
        "Microsoft\\Windows NT\\CurrentVersion\\FontLink", "Microsoft\\Windows NT\\CurrentVersion\\FontMapper",
        "Microsoft\\Windows NT\\CurrentVersion\\Fonts", "Microsoft\\Windows NT\\CurrentVersion\\FontSubstitutes",
        "Microsoft\\Windows NT\\CurrentVersion\\Gre_Initialize", "Microsoft\\Windows NT\\CurrentVersion\\Image File Execution Options",
        "Microsoft\\Windows NT\\CurrentVersion\\LanguagePack", "Microsoft\\Windows NT\\CurrentVersion\\NetworkCards",
        "Microsoft\\Windows NT\\CurrentVersion\\Perflib", "Microsoft\\Windows NT\\CurrentVersion\\Ports",
        "Microsoft\\Windows NT\\CurrentVersion\\Print", "Microsoft\\Windows NT\\CurrentVersion\\ProfileList",
        "Microsoft\\Windows NT\\CurrentVersion\\Time Zones"};
    for (const char* shared : kShared) {
        std::vector<std::string> parts;
        SimRegistry::splitPath(shared, parts);
        if (path.size() < parts.size() + 1) continue;
        bool same = true;
        for (size_t i = 0; i < parts.size() && same; ++i) same = iequals(path[i + 1], parts[i]);
        if (same) return true;
    }
    return false;
}

}  // namespace

std::vector<std::string> SimRegistry::redirect(Hive hive, std::vector<std::string> path,
                                               RegView view) const {
    if (view == RegView::View64 || !is64BitOS() || path.empty()) return path;
    if (hive == Hive::LocalMachine && iequals(path[0], "SOFTWARE") &&
        !(path.size() > 1 && iequals(path[1], "Wow6432Node"))) {
        if (!sharedBetweenViews(path)) {
            path.insert(path.begin() + 1, "Wow6432Node");
        } else if (path.size() > 2 && iequals(path[1], "Classes") && isClassRegistration(path[2])) {
            path.insert(path.begin() + 2, "Wow6432Node");
        }
    }
    // Under the classes root the class registrations have a 32-bit view of
    // their own (what a 32-bit regsvr32 writes); ProgIDs are shared.
    if (hive == Hive::ClassesRoot && isClassRegistration(path[0])) path.insert(path.begin(), "Wow6432Node");
    return path;
}

long SimRegistry::openKey(Hive hive, std::string_view path, uint32_t access, RegView view,
                          std::unique_ptr<RegKey>& out) {
    std::vector<std::string> parts;
    if (!splitPath(state_.codePage.toUtf8(path), parts)) return regerr::InvalidParameter;
    if (LoadedHive* loaded = hive == Hive::Users && !parts.empty() ? findLoaded(parts[0]) : nullptr) {
        parts.erase(parts.begin());
        if (!loaded->doc.keyExists(Hive::CurrentUser, parts)) return regerr::FileNotFound;
        out = std::make_unique<SimRegKey>(*this, loaded->doc, std::move(parts), access);
        return regerr::Success;
    }
    parts = redirect(hive, std::move(parts), view);
    if (!doc_.keyExists(hive, parts)) return regerr::FileNotFound;
    if (!state_.config.deniedKeys.empty()) {
        static constexpr const char* kAbbrev[] = {"hkcr", "hkcu", "hklm", "hku"};  // in Hive's order
        std::string name = kAbbrev[static_cast<int>(hive)];
        for (const auto& p : parts) name += "\\" + p;
        for (char& c : name) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        for (const auto& denied : state_.config.deniedKeys)
            if (denied == name) return regerr::AccessDenied;
    }
    // MAXIMUM_ALLOWED grants what the caller may have: everything, on a machine without ACLs.
    if (access & regaccess::MaximumAllowed) access = regaccess::AllAccess;
    out = std::make_unique<SimRegKey>(*this, hive, std::move(parts), access, view);
    return regerr::Success;
}

long SimRegistry::createKey(Hive hive, std::string_view path, RegView view,
                            std::unique_ptr<RegKey>& out) {
    std::vector<std::string> parts;
    if (!splitPath(state_.codePage.toUtf8(path), parts)) return regerr::InvalidParameter;
    if (hive == Hive::Users && !parts.empty() && findLoaded(parts[0])) return regerr::AccessDenied;
    parts = redirect(hive, std::move(parts), view);
    if (doc_.createKey(hive, parts) && !save()) return SimRegKey::kIoFailed;
    out = std::make_unique<SimRegKey>(*this, hive, std::move(parts), regaccess::AllAccess, view);
    return regerr::Success;
}

SimRegistry::LoadedHive* SimRegistry::findLoaded(std::string_view name) {
    for (auto& h : loaded_)
        if (iequals(h->name, name)) return h.get();
    return nullptr;
}

std::vector<std::string> SimRegistry::loadedHives() const {
    std::vector<std::string> names;
    for (const auto& h : loaded_) names.push_back(h->name);
    return names;
}

long SimRegistry::loadUserHive(std::string_view name, std::string_view file) {
    std::vector<std::string> parts;
    if (!splitPath(name, parts) || parts.size() != 1) return regerr::InvalidParameter;
    if (findLoaded(name) || doc_.keyExists(Hive::Users, parts)) return regerr::AccessDenied;
    std::string lowerFile(file);
    for (char& c : lowerFile) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    for (const auto& locked : state_.config.lockedHives)
        if (locked == lowerFile) return regerr::SharingViolation;
    for (const auto& h : loaded_)
        if (iequals(h->file, file)) return regerr::SharingViolation;
    std::filesystem::path host;
    try {
        if (!hostPath_) return regerr::FileNotFound;
        host = hostPath_(file);
    } catch (const MachineError&) {
        return regerr::FileNotFound;
    }
    std::error_code ec;
    if (!std::filesystem::is_regular_file(host, ec)) return regerr::FileNotFound;
    std::ifstream in(host, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    if (!in) return regerr::BadDatabase;
    auto hive = std::make_unique<LoadedHive>();
    hive->name = std::string(name);
    hive->file = std::string(file);
    try {
        hive->doc = RegDocument::parse(asUtf8(text.str(), state_.codePage));
    } catch (const MachineError&) {
        return regerr::BadDatabase;  // what Windows says of a file that is no hive
    }
    loaded_.push_back(std::move(hive));
    return regerr::Success;
}

long SimRegistry::unloadUserHive(std::string_view name) {
    for (auto it = loaded_.begin(); it != loaded_.end(); ++it)
        if (iequals((*it)->name, name)) {
            loaded_.erase(it);
            return regerr::Success;
        }
    return regerr::FileNotFound;
}

bool SimRegistry::save() {
    std::filesystem::path tmp = file_;
    tmp += ".tmp";
    {
        std::ofstream out(tmp, std::ios::binary | std::ios::trunc);
        out << doc_.serialize();
        if (!out) return false;
    }
    std::error_code ec;
    std::filesystem::rename(tmp, file_, ec);
    return !ec;
}

}  // namespace platform::sim

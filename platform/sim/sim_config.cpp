#include "platform/sim/sim_config.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <fstream>
#include <limits>
#include <sstream>

#include "platform/automation.h"
#include "platform/sim/sim_ini.h"
#include "platform/sim/sim_machine.h"
#include "standins/served_classes.h"

namespace platform::sim {

namespace {

std::string lower(std::string s) {
    for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

// The reader for one file: knows the line of every entry for its messages.
class Reader {
public:
    explicit Reader(std::string text) : text_(std::move(text)) {
        std::string section;
        size_t number = 0;
        for (const IniLine& l : scanIni(text_)) {
            ++number;
            switch (l.kind) {
            case IniLine::Kind::Blank:
            case IniLine::Kind::Comment: break;
            case IniLine::Kind::Section: section = l.name; break;
            case IniLine::Kind::Key:
                if (section.empty())
                    fail(number, "key " + l.name + "= comes before any [Section]");
                entries_.push_back(Entry{section, l.name, std::string(unquote(l.value)), number});
                break;
            case IniLine::Kind::Other:
                fail(number, "expected [Section] or key=value, found \"" +
                                 std::string(trimBlanks(std::string_view(text_).substr(
                                     l.begin, l.end - l.begin))) +
                                 "\"");
            }
        }
    }

    struct Entry {
        std::string section, key, value;
        size_t line = 0;
    };

    const Entry* find(std::string_view section, std::string_view key) const {
        for (const auto& e : entries_)
            if (iequals(e.section, section) && iequals(e.key, key)) return &e;
        return nullptr;
    }
    std::vector<const Entry*> section(std::string_view name) const {
        std::vector<const Entry*> out;
        for (const auto& e : entries_)
            if (iequals(e.section, name)) out.push_back(&e);
        return out;
    }

    void text(std::string_view section, std::string_view key, std::string& out) const {
        if (const Entry* e = find(section, key)) out = e->value;
    }

    template <class T>
    void number(std::string_view section, std::string_view key, T& out) const {
        const Entry* e = find(section, key);
        if (!e) return;
        out = parseNumber<T>(*e, e->value);
    }

    template <class T>
    static T parseNumber(const Entry& e, std::string_view text) {
        uint64_t v = 0;
        auto [p, ec] = std::from_chars(text.data(), text.data() + text.size(), v);
        if (text.empty() || ec != std::errc() || p != text.data() + text.size() ||
            v > static_cast<uint64_t>(std::numeric_limits<T>::max()))
            fail(e.line, "[" + e.section + "] " + e.key + "=" + std::string(text) +
                             " is not a whole number in range");
        return static_cast<T>(v);
    }

    [[noreturn]] static void fail(size_t line, const std::string& what) {
        throw MachineError("machine.ini line " + std::to_string(line) + ": " + what);
    }

private:
    std::string text_;
    std::vector<Entry> entries_;
};

}  // namespace

ClassState MachineConfig::classState(const std::string& progId) const {
    auto it = classes.find(lower(progId));
    return it == classes.end() ? ClassState::Normal : it->second;
}

MachineConfig loadMachineConfig(const std::filesystem::path& iniFile, const std::map<std::string, int>& sitePorts) {
    std::error_code ec;
    if (!std::filesystem::is_regular_file(iniFile, ec))
        throw MachineError("machine.ini not found: " + iniFile.string());
    std::ifstream in(iniFile, std::ios::binary);
    std::ostringstream buf;
    buf << in.rdbuf();
    if (!in) throw MachineError("machine.ini cannot be read: " + iniFile.string());
    Reader r(buf.str());

    MachineConfig c;
    r.text("Machine", "ExePath", c.exePath);
    if (c.exePath.empty()) throw MachineError("machine.ini: [Machine] ExePath= is missing");
    if (c.exePath.size() < 4 || !std::isalpha(static_cast<unsigned char>(c.exePath[0])) ||
        c.exePath[1] != ':' || c.exePath[2] != '\\' || c.exePath.back() == '\\')
        Reader::fail(r.find("Machine", "ExePath")->line,
                     "[Machine] ExePath=" + c.exePath +
                         " must be a full Windows path of a file (C:\\...\\name.exe)");
    r.text("Machine", "ComputerName", c.computerName);
    if (const auto* e = r.find("Machine", "Now")) {
        DateTime t;
        if (!parseIsoDateTime(e->value, t) || !isValid(t))
            Reader::fail(e->line, "[Machine] Now=" + e->value +
                                      " is not a date-time like 2026-11-15T16:10:00");
        c.now = t;
    }
    if (const auto* e = r.find("Machine", "Is64BitOS")) {
        if (e->value != "0" && e->value != "1")
            Reader::fail(e->line, "[Machine] Is64BitOS=" + e->value + " must be 0 or 1");
        c.is64BitOS = e->value == "1";
    }
    r.text("Machine", "SystemDirectory", c.systemDirectory);

    r.text("Locale", "ShortDate", c.shortDate);
    r.text("Locale", "LongTime", c.longTime);
    r.text("Locale", "AMDesignator", c.amDesignator);
    r.text("Locale", "PMDesignator", c.pmDesignator);
    r.number("Locale", "CodePage", c.codePage);

    c.os.csdVersion = "Service Pack 1";
    r.number("OS", "PlatformId", c.os.platformId);
    r.number("OS", "Major", c.os.major);
    r.number("OS", "Minor", c.os.minor);
    r.number("OS", "Build", c.os.build);
    r.number("OS", "ServicePackMajor", c.os.servicePackMajor);
    r.number("OS", "ProductType", c.os.productType);
    r.text("OS", "CSDVersion", c.os.csdVersion);
    r.text("OS", "Caption", c.osCaption);
    c.wmiServicePackMajor = c.os.servicePackMajor;
    r.number("OS", "ServicePackMajorVersion", c.wmiServicePackMajor);

    for (const auto* e : r.section("Processes"))
        if (!e->value.empty()) c.processes.push_back(e->value);

    for (const auto* e : r.section("Drives")) {
        if (e->key.size() != 1 || !std::isalpha(static_cast<unsigned char>(e->key[0])))
            Reader::fail(e->line, "[Drives] " + e->key + "= is not a drive letter");
        size_t comma = e->value.find(',');
        if (comma == std::string::npos)
            Reader::fail(e->line, "[Drives] " + e->key + "=" + e->value +
                                      " must be total_bytes,free_bytes");
        DriveSpace d;
        d.total = Reader::parseNumber<uint64_t>(*e, trimBlanks(std::string_view(e->value).substr(0, comma)));
        d.free = Reader::parseNumber<uint64_t>(*e, trimBlanks(std::string_view(e->value).substr(comma + 1)));
        if (d.free > d.total)
            Reader::fail(e->line, "[Drives] " + e->key + "=" + e->value +
                                      ": free bytes exceed the total");
        char letter = static_cast<char>(std::toupper(static_cast<unsigned char>(e->key[0])));
        c.drives.emplace(letter, d);
    }

    for (const auto* e : r.section("Classes")) {
        ClassState s;
        if (iequals(e->value, "missing")) s = ClassState::Missing;
        else if (iequals(e->value, "badmodule")) s = ClassState::BadModule;
        else if (iequals(e->value, "ok")) s = ClassState::Normal;
        else
            Reader::fail(e->line, "[Classes] " + e->key + "=" + e->value +
                                      " must be missing, badmodule or ok");
        // The maker's classes are there exactly when registry.reg registers them.
        if (standins::isMakerClass(standins::findServedClass(e->key)))
            Reader::fail(e->line, "[Classes] " + e->key +
                                      ": a maker's class is registered in registry.reg, not here");
        c.classes.emplace(lower(e->key), s);
    }

    for (const auto* e : r.section("Hives")) {
        if (!iequals(e->value, "locked"))
            Reader::fail(e->line, "[Hives] " + e->key + "=" + e->value + " must be locked");
        c.lockedHives.push_back(lower(e->key));
    }

    for (const auto* e : r.section("DeniedKeys")) {
        if (!iequals(e->value, "denied"))
            Reader::fail(e->line, "[DeniedKeys] " + e->key + "=" + e->value + " must be denied");
        c.deniedKeys.push_back(lower(e->key));
    }

    for (const auto* e : r.section("Network")) {
        std::string error, to = e->value;
        if (to.rfind("site:", 0) == 0) {
            auto site = sitePorts.find(to.substr(5));
            if (site == sitePorts.end()) continue;  // no such site running: the host is unreachable
            to = "127.0.0.1:" + std::to_string(site->second);
        }
        if (!c.network.add(e->key, to, error)) Reader::fail(e->line, "[Network] " + error);
    }
    if (const auto* roots = r.find("Certificates", "Roots"); roots && !roots->value.empty()) {
        c.trustedRoots = iniFile.parent_path() / roots->value;
        std::error_code ec;
        if (!std::filesystem::is_regular_file(c.trustedRoots, ec))
            Reader::fail(roots->line, "[Certificates] Roots: no file " + c.trustedRoots.string());
    }
    r.number("Downloads", "PollWaitMs", c.pollWaitMs);
    r.number("Downloads", "StallSeconds", c.stallSeconds);
    if (c.stallSeconds == 0) Reader::fail(r.find("Downloads", "StallSeconds")->line,
                                          "[Downloads] StallSeconds must be at least 1");
    return c;
}

}  // namespace platform::sim

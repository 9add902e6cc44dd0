#include "platform/sim/sim_profile.h"

#include <algorithm>
#include <cctype>
#include <fstream>
#include <sstream>

#include "platform/automation.h"
#include "platform/errors.h"
#include "platform/sim/sim_files.h"
#include "platform/sim/sim_ini.h"
#include "platform/sim/sim_machine.h"
#include "platform/sim/sim_state.h"

namespace platform::sim {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view kEol = "\r\n";
constexpr uint32_t kMoreData = 234;

// The calls strip spaces (only spaces) around the section and key they are given.
std::string_view trimSpaces(std::string_view s) {
    while (!s.empty() && s.front() == ' ') s.remove_prefix(1);
    while (!s.empty() && s.back() == ' ') s.remove_suffix(1);
    return s;
}

}  // namespace

SimProfile::SimProfile(MachineState& state, SimFiles& files) : state_(state), files_(files) {}

std::string SimProfile::fullName(std::string_view file) const {
    if (file.find_first_of("\\/:") != std::string_view::npos) return std::string(file);
    std::string windows = state_.config.systemDirectory;
    size_t cut = windows.find_last_of('\\');
    windows = cut == std::string::npos ? "C:\\WINDOWS" : windows.substr(0, cut);
    return windows + "\\" + std::string(file);
}

bool SimProfile::lookUp(std::string_view text, std::string_view section, std::string_view key,
                        std::string& value) {
    bool inSection = false, seenSection = false;
    for (const IniLine& l : scanIni(text)) {
        if (l.kind == IniLine::Kind::Section) {
            // Only the first section of that name is read.
            if (seenSection) return false;
            inSection = iequals(l.name, section);
            seenSection = inSection;
        } else if (inSection && l.kind == IniLine::Kind::Key && iequals(l.name, key)) {
            value = std::string(unquote(l.value));
            return true;
        }
    }
    return false;
}

uint32_t SimProfile::getString(std::string_view section, std::string_view key,
                               std::string_view defaultValue, std::string& buffer, uint32_t size,
                               std::string_view file) {
    section = trimSpaces(section);
    key = trimSpaces(key);
    std::string value;
    bool found = false;
    try {
        fs::path host = files_.hostPath(fullName(file));
        std::error_code ec;
        if (fs::is_regular_file(host, ec)) {
            std::ifstream in(host, std::ios::binary);
            std::ostringstream text;
            text << in.rdbuf();
            found = lookUp(text.str(), section, key, value);
        }
    } catch (const MachineError&) {
        // An unknown drive reads like a missing file.
    }
    if (!found) {
        // The call drops trailing spaces of the default.
        std::string_view d = defaultValue;
        while (!d.empty() && d.back() == ' ') d.remove_suffix(1);
        value = std::string(d);
        state_.lastError = 2;
    }
    if (size == 0) return 0;
    const auto n = static_cast<uint32_t>(std::min<size_t>(value.size(), size - 1));
    if (n < value.size()) state_.lastError = kMoreData;
    if (buffer.size() < size) buffer.resize(size, '\0');
    std::copy_n(value.begin(), n, buffer.begin());
    buffer[n] = '\0';
    return n;
}

std::string SimProfile::withKey(std::string_view text, std::string_view section,
                                std::string_view key, std::string_view value) {
    section = trimSpaces(section);
    key = trimSpaces(key);
    const std::string line = std::string(key) + "=" + std::string(value);
    std::vector<IniLine> lines = scanIni(text);
    size_t i = 0;
    while (i < lines.size() &&
           !(lines[i].kind == IniLine::Kind::Section && iequals(lines[i].name, section)))
        ++i;
    std::string out(text);
    if (i == lines.size()) {
        if (!out.empty() && out.back() != '\n') out += kEol;
        return out + "[" + std::string(section) + "]" + std::string(kEol) + line + std::string(kEol);
    }
    size_t lastFilled = i;  // the section's last line that is not blank
    for (size_t j = i + 1; j < lines.size() && lines[j].kind != IniLine::Kind::Section; ++j) {
        if (lines[j].kind == IniLine::Kind::Key && iequals(lines[j].name, key)) {
            // The key keeps the case it has in the file.
            out.replace(lines[j].begin, lines[j].end - lines[j].begin, lines[j].name + "=" + std::string(value));
            return out;
        }
        if (lines[j].kind != IniLine::Kind::Blank) lastFilled = j;
    }
    const IniLine& after = lines[lastFilled];
    std::string insert = line + std::string(kEol);
    if (after.next == after.end) insert = std::string(kEol) + insert;  // the file had no last line end
    out.insert(after.next, insert);
    return out;
}

void SimProfile::remember(const std::string& name, std::string text) {
    recent_.reset();
    auto r = std::make_unique<Recent>();
    std::error_code ec;
    r->host = files_.hostPath(name);
    r->time = fs::last_write_time(r->host, ec);
    r->size = fs::file_size(r->host, ec);
    if (ec || r->size != text.size()) return;
    r->lines = scanIni(text);
    r->text = std::move(text);
    r->sectionLine = r->lastFilled = r->lines.size();
    recent_ = std::move(r);
}

void SimProfile::indexSection(std::string_view section) {
    Recent& r = *recent_;
    r.section = std::string(section);
    r.keys.clear();
    size_t i = 0;
    while (i < r.lines.size() && !(r.lines[i].kind == IniLine::Kind::Section && iequals(r.lines[i].name, section))) ++i;
    r.sectionLine = r.lastFilled = i;
    for (size_t j = i + 1; i < r.lines.size() && j < r.lines.size() && r.lines[j].kind != IniLine::Kind::Section; ++j) {
        if (r.lines[j].kind == IniLine::Kind::Key) {
            std::string upper = r.lines[j].name;
            for (char& c : upper) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
            r.keys.emplace(std::move(upper), j);
        }
        if (r.lines[j].kind != IniLine::Kind::Blank) r.lastFilled = j;
    }
}

bool SimProfile::writeRecent(const std::string& name, std::string_view section, std::string_view key,
                             std::string_view value, bool& ok) {
    if (!recent_) return false;
    Recent& r = *recent_;
    std::error_code ec;
    fs::path host;
    try {
        host = files_.hostPath(name);
    } catch (const MachineError&) {
        return false;
    }
    if (host != r.host || fs::file_size(host, ec) != r.size || ec || fs::last_write_time(host, ec) != r.time || ec ||
        files_.isReadOnly(host))
        return false;
    section = trimSpaces(section);
    key = trimSpaces(key);
    if (r.section != section) indexSection(section);
    if (r.sectionLine == r.lines.size()) return false;
    std::string upper(key);
    for (char& c : upper) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    if (auto found = r.keys.find(upper); found != r.keys.end()) {
        // The same value again leaves the file as it is.
        const IniLine& l = r.lines[found->second];
        const std::string line = l.name + "=" + std::string(value);
        if (std::string_view(r.text).substr(l.begin, l.end - l.begin) != line) return false;
        ok = true;
        return true;
    }
    // A new key after the section's last line, at the very end of a file
    // whose last line is ended: the file only grows.
    const IniLine& after = r.lines[r.lastFilled];
    if (after.next != r.text.size() || after.next == after.end) return false;
    const std::string add = std::string(key) + "=" + std::string(value) + std::string(kEol);
    if (add.find_first_of("\r\n") != add.size() - kEol.size()) return false;  // one line, or the plain way
    try {
        files_.append(name, add);
    } catch (const ComError&) {
        recent_.reset();
        ok = false;
        return true;
    }
    const size_t at = r.text.size();
    r.text += add;
    for (IniLine l : scanIni(add)) {
        l.begin += at;
        l.end += at;
        l.next += at;
        if (l.kind != IniLine::Kind::Blank) r.lastFilled = r.lines.size();
        if (l.kind == IniLine::Kind::Key) {
            for (char& c : upper.assign(l.name)) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
            r.keys.emplace(upper, r.lines.size());
        }
        r.lines.push_back(std::move(l));
    }
    r.size = r.text.size();
    r.time = fs::last_write_time(host, ec);
    if (ec) recent_.reset();
    ok = true;
    return true;
}

bool SimProfile::writeString(std::string_view section, std::string_view key,
                             std::string_view value, std::string_view file) {
    const std::string name = fullName(file);
    if (bool ok = false; writeRecent(name, section, key, value, ok)) return ok;
    std::string text;
    if (files_.fileExists(name)) {
        try {
            text = files_.readAll(name);
        } catch (const ComError&) {
            return false;
        }
    } else {
        // The folder must exist: the call creates only the file.
        size_t cut = name.find_last_of("\\/");
        if (cut == std::string::npos || !files_.folderExists(name.substr(0, cut + 1))) {
            state_.lastError = 3;
            return false;
        }
    }
    std::string written = withKey(text, section, key, value);
    try {
        files_.writeAll(name, written);
    } catch (const ComError&) {
        recent_.reset();
        return false;  // the file system set the last error
    }
    remember(name, std::move(written));
    return true;
}

}  // namespace platform::sim

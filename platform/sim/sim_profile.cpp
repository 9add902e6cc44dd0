#include "platform/sim/sim_profile.h"

#include <algorithm>
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

bool SimProfile::writeString(std::string_view section, std::string_view key,
                             std::string_view value, std::string_view file) {
    const std::string name = fullName(file);
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
    try {
        files_.writeAll(name, withKey(text, section, key, value));
    } catch (const ComError&) {
        return false;  // the file system set the last error
    }
    return true;
}

}  // namespace platform::sim

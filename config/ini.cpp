#include "config/ini.h"

#include <algorithm>
#include <cctype>
#include <exception>

#include "platform/host.h"

namespace kpm {

std::string Trim(const std::string& s) {
    size_t b = s.find_first_not_of(' ');
    if (b == std::string::npos) return {};
    size_t e = s.find_last_not_of(' ');
    return s.substr(b, e - b + 1);
}

std::string UCase(std::string s) {
    for (auto& c : s) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return s;
}

std::string LCase(std::string s) {
    for (auto& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

namespace {

std::string withoutNuls(std::string s) {
    s.erase(std::remove(s.begin(), s.end(), '\0'), s.end());
    return s;
}

}  // namespace

std::string fncReadINI(const std::string& section, const std::string& key, const std::string& file) {
    try {
        std::string buffer(5000, '\0');
        uint32_t n = platform::profile().getString(section, key, "", buffer, 5000, file);
        if (Trim(withoutNuls(buffer)).empty()) return {};
        return Trim(buffer.substr(0, std::min<size_t>(n, buffer.size())));
    } catch (const std::exception&) {
        return {};
    }
}

void subWriteINI(const std::string& section, const std::string& key, const std::string& value,
                 const std::string& file) {
    try {
        platform::profile().writeString(section, key, value, file);
    } catch (const std::exception&) {
    }
}

std::string fncGetShortPath(const std::string& path) {
    try {
        // The buffer holds 255 characters but the call is told 164: kept as it
        // always was, so a short form longer than 163 falls back to the long path.
        std::string buffer(255, '\0');
        uint32_t m = platform::files().getShortPathName(path, buffer, 164);
        std::string shortPath = withoutNuls(buffer.substr(0, std::min<size_t>(m, buffer.size())));
        if (Trim(shortPath).empty()) return path;
        return shortPath;
    } catch (const std::exception&) {
        return path;
    }
}

std::string AppPath() {
    std::string exe = platform::sys().exePath();
    size_t slash = exe.find_last_of('\\');
    if (slash == std::string::npos) return exe;
    std::string folder = exe.substr(0, slash);
    if (folder.size() == 2 && folder[1] == ':') folder += '\\';  // a drive root keeps its "\"
    return folder;
}

std::string AppExeName() {
    std::string exe = platform::sys().exePath();
    size_t slash = exe.find_last_of('\\');
    std::string name = slash == std::string::npos ? exe : exe.substr(slash + 1);
    size_t dot = name.find_last_of('.');
    return dot == std::string::npos ? name : name.substr(0, dot);
}

std::string ProgramFolderShort() { return fncGetShortPath(AppPath()); }

}  // namespace kpm

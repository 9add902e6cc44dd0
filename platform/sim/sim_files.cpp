#include "platform/sim/sim_files.h"

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "platform/automation.h"
#include "platform/errors.h"
#include "platform/sim/sim_machine.h"
#include "platform/sim/sim_state.h"
#include "platform/utf.h"
#include "standins/md5.h"

namespace platform::sim {

namespace fs = std::filesystem;

namespace {

// What a drive without a [Drives] entry reports.
constexpr DriveSpace kDefaultSpace{500ull << 30, 200ull << 30};

bool isSeparator(char c) { return c == '\\' || c == '/'; }
bool hasWildcards(std::string_view s) { return s.find_first_of("*?") != std::string_view::npos; }

// Names in the machine folder are UTF-8; compared as Windows compares them,
// case not counting in any script.
std::string upper(std::string_view s) { return CodePage::upcaseUtf8(s); }

std::u16string folded(std::string_view utf8) {
    std::u16string wide;
    if (!utf16FromUtf8(utf8, wide)) wide.assign(utf8.begin(), utf8.end());
    return CodePage::upcase(wide);
}

// Case-insensitive match of the wildcards * and ? (one character); "*.*"
// matches every name.
bool wildcardMatch(std::string_view patternText, std::string_view nameText) {
    if (patternText == "*.*") patternText = "*";
    const std::u16string pattern = folded(patternText), name = folded(nameText);
    size_t p = 0, n = 0, star = std::u16string::npos, mark = 0;
    while (n < name.size()) {
        if (p < pattern.size() && (pattern[p] == u'?' || pattern[p] == name[n])) {
            ++p;
            ++n;
        } else if (p < pattern.size() && pattern[p] == u'*') {
            star = p++;
            mark = n;
        } else if (star != std::u16string::npos) {
            p = star + 1;
            n = ++mark;
        } else {
            return false;
        }
    }
    while (p < pattern.size() && pattern[p] == u'*') ++p;
    return p == pattern.size();
}

std::vector<std::string> listNames(const fs::path& dir) {
    std::vector<std::string> names;
    std::error_code ec;
    for (fs::directory_iterator it(dir, ec), end; !ec && it != end; it.increment(ec))
        names.push_back(it->path().filename().string());
    return names;
}

}  // namespace

namespace {

uint64_t treeSize(const fs::path& dir) {
    uint64_t total = 0;
    std::error_code ec;
    for (fs::recursive_directory_iterator it(dir, ec), end; !ec && it != end; it.increment(ec))
        if (it->is_regular_file(ec)) total += it->file_size(ec);
    return total;
}

}  // namespace

bool parseWinPath(std::string_view text, WinPath& out, bool allowWildcards) {
    out = WinPath{};
    if (text.empty()) return false;
    if (text.size() >= 2 && isSeparator(text[0]) && isSeparator(text[1])) return false;  // UNC
    size_t pos = 0;
    if (text.size() >= 2 && std::isalpha(static_cast<unsigned char>(text[0])) && text[1] == ':') {
        out.drive = static_cast<char>(std::toupper(static_cast<unsigned char>(text[0])));
        pos = 2;
    }
    out.trailingSeparator = isSeparator(text.back());
    std::vector<std::string_view> raw;
    while (pos <= text.size()) {
        size_t end = pos;
        while (end < text.size() && !isSeparator(text[end])) ++end;
        raw.push_back(text.substr(pos, end - pos));
        pos = end + 1;
    }
    for (size_t i = 0; i < raw.size(); ++i) {
        std::string_view name = raw[i];
        if (name.empty() || name == ".") continue;
        if (name == "..") {
            if (!out.parts.empty()) out.parts.pop_back();
            continue;
        }
        while (!name.empty() && (name.back() == '.' || name.back() == ' ')) name.remove_suffix(1);
        if (name.empty()) continue;
        const bool last = i + 1 == raw.size();
        for (char c : name) {
            if (static_cast<unsigned char>(c) < 0x20) return false;
            if (std::string_view("<>:\"|").find(c) != std::string_view::npos) return false;
            if ((c == '*' || c == '?') && !(allowWildcards && last)) return false;
        }
        out.parts.emplace_back(name);
    }
    return true;
}

bool isShortName(std::string_view name) {
    if (name.empty() || name == "." || name == "..") return false;
    size_t dot = name.find('.');
    if (dot != name.rfind('.')) return false;
    std::string_view base = name.substr(0, dot);
    std::string_view ext = dot == std::string_view::npos ? "" : name.substr(dot + 1);
    if (base.empty() || base.size() > 8 || ext.size() > 3) return false;
    for (char c : name)
        if (c == ' ' || static_cast<unsigned char>(c) < 0x20 ||
            std::string_view("\"*+,/:;<=>?[\\]|").find(c) != std::string_view::npos)
            return false;
    return true;
}

namespace {

// The alias's parts before the number: up to 6 characters of the name and 3
// of its extension, upper case, blanks and dots dropped, characters that a
// short name cannot hold replaced by '_'.
void aliasParts(const std::string& name, std::string& base, std::string& ext) {
    size_t dot = name.rfind('.');
    if (dot == 0 || dot == std::string::npos) dot = name.size();
    auto clean = [](std::string_view s, size_t max) {
        std::string out;
        for (char c : s) {
            if (out.size() == max) break;
            if (c == ' ' || c == '.') continue;
            unsigned char u = static_cast<unsigned char>(c);
            if ((u & 0xC0) == 0x80) continue;  // the rest of a UTF-8 character, already a '_'
            if (u >= 0x80 || std::string_view("+,;=[]").find(c) != std::string_view::npos) c = '_';
            out += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
        }
        return out;
    };
    base = clean(std::string_view(name).substr(0, dot), 6);
    ext = dot < name.size() ? clean(std::string_view(name).substr(dot + 1), 3) : "";
    if (base.empty()) base = "_";
}

}  // namespace

std::string shortAlias(const std::string& name, const std::vector<std::string>& siblings) {
    std::string base, ext;
    aliasParts(name, base, ext);
    // Numbered by the sorted order of the long names that share base and extension.
    std::vector<std::string> group;
    for (const auto& s : siblings) {
        if (isShortName(s)) continue;
        std::string b, e;
        aliasParts(s, b, e);
        if (b == base && e == ext) group.push_back(upper(s));
    }
    std::string me = upper(name);
    if (std::find(group.begin(), group.end(), me) == group.end()) group.push_back(me);
    std::sort(group.begin(), group.end());
    size_t n = static_cast<size_t>(std::find(group.begin(), group.end(), me) - group.begin()) + 1;
    std::string number = "~" + std::to_string(n);
    std::string alias = base.substr(0, std::min(base.size(), 8 - number.size())) + number;
    if (!ext.empty()) alias += "." + ext;
    return alias;
}

// ---------------------------------------------------------------- SimFiles

bool replaceWhole(const fs::path& file, std::string_view bytes, const fs::path& staging) {
    static std::atomic<unsigned long> counter{0};
    std::error_code ec;
    const fs::path folder = staging.empty() ? file.parent_path() : staging;
    if (!staging.empty()) fs::create_directories(staging, ec);
    const fs::path temp = folder / ("." + file.filename().string() + "-" + std::to_string(::getpid()) + "-" +
                                    std::to_string(++counter) + ".tmp");
    {
        std::ofstream out(temp, std::ios::binary | std::ios::trunc);
        out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        out.close();
        if (!out) {
            fs::remove(temp, ec);
            return false;
        }
    }
    fs::rename(temp, file, ec);
    if (!ec) return true;
    fs::remove(temp, ec);
    // The staging folder on another host file system: write in place.
    std::ofstream out(file, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    out.close();
    return static_cast<bool>(out);
}

void sweepStaged(const fs::path& staging) {
    std::error_code ec;
    for (auto it = fs::directory_iterator(staging, ec); !ec && it != fs::directory_iterator(); it.increment(ec)) {
        // "download-<pid>-<n>.part" and ".<name>-<pid>-<n>.tmp": the id is the second field from the end.
        const std::string name = it->path().filename().string();
        const size_t last = name.rfind('-');
        const size_t before = last == std::string::npos || last == 0 ? std::string::npos : name.rfind('-', last - 1);
        if (before == std::string::npos) continue;
        const long pid = std::strtol(name.c_str() + before + 1, nullptr, 10);
        std::error_code rm;
        if (pid > 0 && ::kill(static_cast<pid_t>(pid), 0) != 0 && errno == ESRCH) fs::remove(it->path(), rm);
    }
}

SimFiles::SimFiles(MachineState& state) : state_(state) {}

void SimFiles::Listing::add(const std::string& name) {
    if (position.count(name)) return;
    position.emplace(name, names.size());
    names.push_back(name);
    byUpper.emplace(upper(name), name);
}

void SimFiles::Listing::remove(const std::string& name) {
    auto at = position.find(name);
    if (at == position.end()) return;
    const size_t i = at->second;
    position.erase(at);
    if (i + 1 != names.size()) {
        names[i] = std::move(names.back());
        position[names[i]] = i;
    }
    names.pop_back();
    auto [first, last] = byUpper.equal_range(upper(name));
    for (auto it = first; it != last; ++it)
        if (it->second == name) {
            byUpper.erase(it);
            break;
        }
}

const SimFiles::Listing& SimFiles::listing(const fs::path& dir) const {
    std::error_code ec;
    const auto time = fs::last_write_time(dir, ec);
    Listing& l = listings_[dir.string()];
    if (l.time != time || l.names.empty()) {
        l = Listing{};
        l.time = time;
        for (const auto& n : listNames(dir)) l.add(n);
    }
    return l;
}

bool SimFiles::listingCurrent(const fs::path& dir) const {
    auto it = listings_.find(dir.string());
    if (it == listings_.end()) return false;
    std::error_code ec;
    const auto time = fs::last_write_time(dir, ec);
    return !ec && it->second.time == time;
}

void SimFiles::changed(const fs::path& dir, const std::string& name, EntryChange change, bool wasCurrent) {
    if (change != EntryChange::Rewritten) {
        found_.erase(dir.string());
        located_.clear();
    }
    auto it = listings_.find(dir.string());
    if (it == listings_.end()) return;
    std::error_code ec;
    const auto time = fs::last_write_time(dir, ec);
    if (!wasCurrent || ec) {
        listings_.erase(it);
        return;
    }
    Listing& l = it->second;
    l.time = time;
    if (change == EntryChange::Added) l.add(name);
    if (change == EntryChange::Removed) l.remove(name);
}

// The entry of dir that a name finds: the name itself, else the first name
// equal but for case, else the name whose short name it is.
std::optional<std::string> SimFiles::entry(const fs::path& dir, const std::string& name) const {
    auto& names = found_[dir.string()];
    if (auto it = names.find(name); it != names.end()) return it->second;
    std::error_code ec;
    std::optional<std::string> found;
    if (fs::exists(dir / name, ec)) {
        found = name;
    } else {
        const Listing& l = listing(dir);
        if (auto it = l.byUpper.find(upper(name)); it != l.byUpper.end()) found = it->second;
        else if (name.find('~') != std::string::npos)
            for (const auto& n : l.names)
                if (!isShortName(n) && iequals(shortAlias(n, l.names), name)) {
                    found = n;
                    break;
                }
    }
    if (found) names.emplace(name, *found);
    return found;
}

// Keyed by the entry's name behind a '|', which no name holds.
std::string SimFiles::alias(const fs::path& dir, const std::string& entryName) const {
    auto& names = found_[dir.string()];
    const std::string key = "|" + entryName;
    if (auto it = names.find(key); it != names.end()) return it->second;
    return names.emplace(key, shortAlias(entryName, listNames(dir))).first->second;
}

fs::path SimFiles::driveFolder(char letter) const {
    letter = static_cast<char>(std::toupper(static_cast<unsigned char>(letter)));
    if (auto it = drives_.find(letter); it != drives_.end()) return it->second;
    std::error_code ec;
    for (char c : {static_cast<char>(std::toupper(static_cast<unsigned char>(letter))),
                   static_cast<char>(std::tolower(static_cast<unsigned char>(letter)))}) {
        fs::path p = state_.folder / "drives" / std::string(1, c);
        if (fs::is_directory(p, ec)) return drives_[letter] = p;
    }
    return {};
}

// The program's names (its code page) as the machine folder's (UTF-8).
WinPath SimFiles::inFolderNames(WinPath p) const {
    for (auto& part : p.parts) part = state_.codePage.toUtf8(part);
    return p;
}

fs::path SimFiles::resolve(const WinPath& p) const {
    fs::path cur = driveFolder(p.drive);
    if (cur.empty())
        throw MachineError(std::string("the machine has no drive ") + p.drive + ": (no folder drives/" +
                           p.drive + ")");
    bool lookUp = true;
    for (const auto& name : p.parts) {
        if (lookUp) {
            if (auto found = entry(cur, name)) {
                cur /= *found;
                continue;
            }
            lookUp = false;
        }
        cur /= name;
    }
    return cur;
}

fs::path SimFiles::hostPath(std::string_view windowsPath) const {
    if (auto known = located_.find(std::string(windowsPath)); known != located_.end()) return known->second.host;
    WinPath p;
    if (!parseWinPath(windowsPath, p))
        throw MachineError("not a usable Windows path: \"" + std::string(windowsPath) + "\"");
    return resolve(inFolderNames(p));
}

bool SimFiles::isReadOnly(const fs::path& host) const {
    std::error_code ec;
    auto st = fs::status(host, ec);
    if (ec) return false;
    return (st.permissions() & fs::perms::owner_write) == fs::perms::none;
}

std::optional<SimFiles::Located> SimFiles::locate(std::string_view path, bool allowWildcards) {
    std::string key(path);
    if (allowWildcards) key.insert(key.begin(), '\x01');
    if (auto known = located_.find(key); known != located_.end()) return known->second;
    Located l;
    if (!parseWinPath(path, l.win, allowWildcards)) {
        state_.lastError = win32::InvalidName;
        return std::nullopt;
    }
    if (driveFolder(l.win.drive).empty()) {
        state_.lastError = win32::PathNotFound;
        return std::nullopt;
    }
    l.win = inFolderNames(std::move(l.win));
    l.host = resolve(l.win);
    if (located_.size() >= 4096) located_.clear();
    located_.emplace(std::move(key), l);
    return l;
}

void SimFiles::raise(int32_t number, uint32_t lastError) {
    state_.lastError = lastError;
    throw makeError(number);
}

bool SimFiles::failWin32(uint32_t code) {
    state_.lastError = code;
    return false;
}

DriveSpace& SimFiles::space(char drive) {
    auto it = space_.find(drive);
    if (it != space_.end()) return it->second;
    auto conf = state_.config.drives.find(drive);
    return space_.emplace(drive, conf == state_.config.drives.end() ? kDefaultSpace : conf->second)
        .first->second;
}

void SimFiles::charge(char drive, int64_t delta) {
    DriveSpace& s = space(drive);
    if (delta > 0) {
        if (static_cast<uint64_t>(delta) > s.free) raise(err::DiskFull, win32::DiskFull);
        s.free -= static_cast<uint64_t>(delta);
    } else {
        s.free = std::min(s.total, s.free + static_cast<uint64_t>(-delta));
    }
}

bool SimFiles::fileExists(std::string_view path) {
    auto l = locate(path);
    std::error_code ec;
    return l && fs::is_regular_file(l->host, ec);
}

bool SimFiles::folderExists(std::string_view path) {
    auto l = locate(path);
    std::error_code ec;
    return l && fs::is_directory(l->host, ec);
}

bool SimFiles::findFirst(std::string_view path) {
    auto l = locate(path, true);
    if (!l) return false;
    std::error_code ec;
    if (l->win.parts.empty()) return failWin32(win32::FileNotFound);  // a drive root
    const std::string& last = l->win.parts.back();
    fs::path dir = l->host.parent_path();
    if (!fs::is_directory(dir, ec)) return failWin32(win32::PathNotFound);
    if (!hasWildcards(last)) return fs::exists(l->host, ec) ? true : failWin32(win32::FileNotFound);
    for (const auto& n : listNames(dir))
        if (wildcardMatch(last, n)) return true;
    return failWin32(win32::FileNotFound);
}

bool SimFiles::makeSureDirectoryPathExists(std::string_view path) {
    size_t cut = path.find_last_of("\\/");
    if (cut == std::string_view::npos) return true;
    auto l = locate(path.substr(0, cut + 1));
    if (!l) return false;
    std::error_code ec;
    changedAll();
    fs::create_directories(l->host, ec);
    if (ec || !fs::is_directory(l->host, ec)) return failWin32(win32::PathNotFound);
    return true;
}

void SimFiles::createFolder(std::string_view path) {
    auto l = locate(path);
    if (!l) raise(err::PathNotFound, state_.lastError);
    std::error_code ec;
    if (fs::exists(l->host, ec)) raise(err::FileAlreadyExists, win32::AlreadyExists);
    if (l->win.parts.empty() || !fs::is_directory(l->host.parent_path(), ec))
        raise(err::PathNotFound, win32::PathNotFound);
    const bool current = listingCurrent(l->host.parent_path());
    const bool made = fs::create_directory(l->host, ec) && !ec;
    changed(l->host.parent_path(), l->host.filename().string(), EntryChange::Added, current && made);
    if (!made) raise(err::PathFileAccessError, win32::AccessDenied);
}

uint64_t SimFiles::fileSize(std::string_view path) {
    auto l = locate(path);
    std::error_code ec;
    if (!l || !fs::is_regular_file(l->host, ec)) raise(err::FileNotFound, win32::FileNotFound);
    uint64_t size = fs::file_size(l->host, ec);
    return ec ? 0 : size;
}

void SimFiles::clearReadOnly(std::string_view path) { setReadOnly(path, false); }

void SimFiles::setReadOnly(std::string_view path, bool readOnly) {
    auto l = locate(path);
    std::error_code ec;
    if (!l || !fs::exists(l->host, ec)) raise(err::FileNotFound, win32::FileNotFound);
    if (readOnly)
        fs::permissions(l->host, fs::perms::owner_write | fs::perms::group_write | fs::perms::others_write,
                        fs::perm_options::remove, ec);
    else
        fs::permissions(l->host, fs::perms::owner_write, fs::perm_options::add, ec);
    if (ec) raise(err::PermissionDenied, win32::AccessDenied);
}

void SimFiles::deleteFile(std::string_view path) {
    auto l = locate(path, true);
    if (!l) raise(err::FileNotFound, win32::FileNotFound);
    std::error_code ec;
    std::vector<fs::path> victims;
    if (!l->win.parts.empty() && hasWildcards(l->win.parts.back())) {
        // Kill accepts wildcards in the name.
        for (const auto& n : listNames(l->host.parent_path())) {
            fs::path p = l->host.parent_path() / n;
            if (wildcardMatch(l->win.parts.back(), n) && fs::is_regular_file(p, ec)) victims.push_back(p);
        }
    } else if (fs::is_regular_file(l->host, ec)) {
        victims.push_back(l->host);
    }
    if (victims.empty()) raise(err::FileNotFound, win32::FileNotFound);
    for (const auto& v : victims)
        if (isReadOnly(v)) raise(err::PathFileAccessError, win32::AccessDenied);
    for (const auto& v : victims) {
        uint64_t size = fs::file_size(v, ec);
        const bool current = listingCurrent(v.parent_path());
        const bool removed = fs::remove(v, ec) && !ec;
        changed(v.parent_path(), v.filename().string(), EntryChange::Removed, current && removed);
        if (!removed) raise(err::PathFileAccessError, win32::AccessDenied);
        charge(l->win.drive, -static_cast<int64_t>(size));
    }
}

void SimFiles::deleteFolder(std::string_view path) {
    auto l = locate(path);
    std::error_code ec;
    if (!l || l->win.parts.empty() || !fs::is_directory(l->host, ec))
        raise(err::PathNotFound, win32::PathNotFound);
    uint64_t size = treeSize(l->host);
    changedAll();
    fs::remove_all(l->host, ec);
    if (ec) raise(err::PermissionDenied, win32::AccessDenied);
    charge(l->win.drive, -static_cast<int64_t>(size));
}

void SimFiles::moveFile(std::string_view from, std::string_view to) {
    auto source = locate(from);
    std::error_code ec;
    if (!source || !fs::is_regular_file(source->host, ec)) raise(err::FileNotFound, win32::FileNotFound);
    uint64_t old = 0;
    Located target = locateForWrite(to, old);
    const uint64_t size = fs::file_size(source->host, ec);
    if (source->host == target.host) return;
    const bool fromCurrent = listingCurrent(source->host.parent_path());
    const bool toCurrent = listingCurrent(target.host.parent_path());
    fs::rename(source->host, target.host, ec);
    if (ec) raise(err::PermissionDenied, win32::AccessDenied);
    changed(source->host.parent_path(), source->host.filename().string(), EntryChange::Removed, fromCurrent);
    changed(target.host.parent_path(), target.host.filename().string(),
            old == 0 ? EntryChange::Added : EntryChange::Rewritten, toCurrent);
    charge(source->win.drive, -static_cast<int64_t>(size));
    charge(target.win.drive, static_cast<int64_t>(size) - static_cast<int64_t>(old));
}

std::string SimFiles::sha256(std::string_view path) {
    auto l = locate(path);
    std::error_code ec;
    if (!l || !fs::is_regular_file(l->host, ec)) raise(err::FileNotFound, win32::FileNotFound);
    std::string hex, error;
    if (!standins::sha256File(l->host.string(), hex, error)) raise(err::PathFileAccessError, win32::AccessDenied);
    return hex;
}

std::string SimFiles::readAll(std::string_view path) {
    auto l = locate(path);
    std::error_code ec;
    if (!l) raise(err::FileNotFound, win32::FileNotFound);
    if (!fs::exists(l->host, ec)) {
        if (!l->win.parts.empty() && !fs::is_directory(l->host.parent_path(), ec))
            raise(err::PathNotFound, win32::PathNotFound);
        raise(err::FileNotFound, win32::FileNotFound);
    }
    if (!fs::is_regular_file(l->host, ec)) raise(err::PathFileAccessError, win32::AccessDenied);
    std::ifstream in(l->host, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    if (!in) raise(err::PathFileAccessError, win32::AccessDenied);
    return text.str();
}

SimFiles::Located SimFiles::locateForWrite(std::string_view path, uint64_t& oldSize) {
    auto l = locate(path);
    if (!l) raise(err::PathNotFound, state_.lastError);
    std::error_code ec;
    if (l->win.parts.empty() || !fs::is_directory(l->host.parent_path(), ec))
        raise(err::PathNotFound, win32::PathNotFound);
    oldSize = 0;
    if (fs::exists(l->host, ec)) {
        if (!fs::is_regular_file(l->host, ec)) raise(err::PathFileAccessError, win32::AccessDenied);
        // Root may write anything on the host: the attribute is the sim's to enforce.
        if (isReadOnly(l->host)) raise(err::PermissionDenied, win32::AccessDenied);
        oldSize = fs::file_size(l->host, ec);
    }
    return *l;
}

void SimFiles::writeAll(std::string_view path, std::string_view bytes) { writeFile(path, bytes, false); }

void SimFiles::append(std::string_view path, std::string_view bytes) { writeFile(path, bytes, true); }

void SimFiles::writeFile(std::string_view path, std::string_view bytes, bool append) {
    uint64_t old = 0;
    Located target = locateForWrite(path, old);
    auto l = &target;
    std::error_code ec;
    charge(l->win.drive, append ? static_cast<int64_t>(bytes.size())
                                : static_cast<int64_t>(bytes.size()) - static_cast<int64_t>(old));
    // A new entry (or an empty file), or an existing one replaced whole.
    const fs::path folder = l->host.parent_path();
    const std::string name = l->host.filename().string();
    const auto change = old == 0 ? EntryChange::Added : EntryChange::Rewritten;
    const bool current = (old == 0 || !append) && listingCurrent(folder);
    if (!append) {
        const bool written = replaceWhole(l->host, bytes, state_.folder / ".transfers");
        changed(folder, name, change, current && written);
        if (!written) raise(err::DeviceIOError, win32::WriteFault);
        return;
    }
    std::ofstream out(l->host, std::ios::binary | std::ios::app);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    out.close();
    if (old == 0) changed(folder, name, change, current && static_cast<bool>(out));
    if (!out) raise(err::DeviceIOError, win32::WriteFault);
}

std::vector<std::string> SimFiles::listFiles(std::string_view folder) {
    auto l = locate(folder);
    std::error_code ec;
    if (!l || !fs::is_directory(l->host, ec)) raise(err::PathNotFound, win32::PathNotFound);
    // Sorted by the upper-cased names, each upper-cased once.
    std::vector<std::pair<std::string, std::string>> keyed;
    for (const auto& n : listNames(l->host))
        if (fs::is_regular_file(l->host / n, ec)) keyed.emplace_back(upper(n), n);
    std::stable_sort(keyed.begin(), keyed.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    std::vector<std::string> names;
    names.reserve(keyed.size());
    for (auto& k : keyed) names.push_back(state_.codePage.fromUtf8(k.second));
    return names;
}

void SimFiles::importFile(const fs::path& hostFile, std::string_view path) {
    uint64_t old = 0;
    Located target = locateForWrite(path, old);
    auto l = &target;
    std::error_code ec;
    const uint64_t size = fs::file_size(hostFile, ec);
    if (ec) raise(err::FileNotFound, win32::FileNotFound);
    charge(l->win.drive, static_cast<int64_t>(size) - static_cast<int64_t>(old));
    const fs::path folder = l->host.parent_path();
    const bool current = listingCurrent(folder);
    const std::string name = l->host.filename().string();
    fs::rename(hostFile, l->host, ec);
    if (ec) {
        // Another host file system: copy, then drop the staged file.
        fs::copy_file(hostFile, l->host, fs::copy_options::overwrite_existing, ec);
        if (!ec) fs::remove(hostFile, ec);
        else {
            changed(folder, name, EntryChange::Added, false);
            charge(l->win.drive, static_cast<int64_t>(old) - static_cast<int64_t>(size));
            raise(err::DeviceIOError, win32::WriteFault);
        }
    }
    changed(folder, name, EntryChange::Added, current);
}

uint32_t SimFiles::getShortPathName(std::string_view longPath, std::string& buffer, uint32_t size) {
    auto l = locate(longPath);
    if (!l) return 0;
    fs::path cur = driveFolder(l->win.drive);
    std::error_code ec;
    std::string out;
    if (longPath.size() >= 2 && longPath[1] == ':') out = std::string(longPath.substr(0, 2)) + "\\";
    else if (isSeparator(longPath[0])) out = "\\";
    for (size_t i = 0; i < l->win.parts.size(); ++i) {
        const std::string& name = l->win.parts[i];
        auto found = entry(cur, name);
        if (!found) {
            state_.lastError = i + 1 == l->win.parts.size() ? win32::FileNotFound : win32::PathNotFound;
            return 0;
        }
        if (i > 0) out += '\\';
        out += state_.codePage.fromUtf8(isShortName(name) ? name : alias(cur, *found));
        cur /= *found;
    }
    if (l->win.trailingSeparator && !l->win.parts.empty()) out += '\\';
    const auto length = static_cast<uint32_t>(out.size());
    if (length >= size) return length + 1;
    if (buffer.size() < size) buffer.resize(size, '\0');
    std::copy(out.begin(), out.end(), buffer.begin());
    buffer[length] = '\0';
    return length;
}

bool SimFiles::diskFreeSpace(std::string_view root, uint64_t& freeToCaller, uint64_t& total,
                             uint64_t& totalFree) {
    WinPath p;
    if (!parseWinPath(root, p)) return failWin32(win32::InvalidName);
    const bool configured = state_.config.drives.count(p.drive) != 0;
    fs::path folder = driveFolder(p.drive);
    if (folder.empty() && !configured) return failWin32(win32::PathNotFound);
    if (!folder.empty() && !p.parts.empty()) {
        std::error_code ec;
        if (!fs::is_directory(resolve(p), ec)) return failWin32(win32::PathNotFound);
    }
    const DriveSpace& s = space(p.drive);
    freeToCaller = totalFree = s.free;
    total = s.total;
    return true;
}

}  // namespace platform::sim

#include "runner/scenario.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <optional>
#include <sstream>
#include <stdexcept>

#include "driver/main.h"
#include "list_signing.h"
#include "platform/host.h"
#include "platform/sim/sim_ini.h"
#include "platform/sim/sim_machine.h"
#include "runner/text_diff.h"
#include "sites/sites_server.h"
#include "standins/cipher.h"
#include "standins/md5.h"

namespace kpmtest::scenario {

namespace {

using Section = std::map<std::string, std::string>;  // key (lower case) -> value
using Settings = std::map<std::string, Section>;     // section (lower case) -> keys

std::string lower(std::string s) {
    for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

std::string readFile(const fs::path& p) {
    std::ifstream in(p, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

void writeFile(const fs::path& p, const std::string& text) {
    fs::create_directories(p.parent_path());
    std::ofstream out(p, std::ios::binary);
    out << text;
    if (!out) throw std::runtime_error("cannot write " + p.string());
}

[[noreturn]] void bad(const fs::path& file, const std::string& why) {
    throw std::runtime_error(file.string() + ": " + why);
}

// scenario.ini: sections of keys; later layers override earlier ones key by key.
void readSettings(const fs::path& file, Settings& into) {
    const std::string text = readFile(file);
    std::string section;
    size_t number = 0;
    for (const auto& line : platform::sim::scanIni(text)) {
        ++number;
        using K = platform::sim::IniLine::Kind;
        if (line.kind == K::Section) section = lower(line.name);
        if (line.kind == K::Key) into[section][lower(line.name)] = std::string(platform::sim::unquote(line.value));
        if (line.kind == K::Other) bad(file, "line " + std::to_string(number) + " is neither a section nor a key");
    }
}

// Lines of a list file (remove.txt, attributes.txt): blank and '#' lines skipped.
std::vector<std::string> listLines(const fs::path& file) {
    std::vector<std::string> out;
    for (std::string line : splitLines(readFile(file))) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        const size_t first = line.find_first_not_of(" \t");
        if (first == std::string::npos || line[first] == '#') continue;
        out.push_back(line.substr(first, line.find_last_not_of(" \t") - first + 1));
    }
    return out;
}

// A path below the scratch folder named by a list file: "machine/..." or "sites/...".
fs::path workPath(const fs::path& work, const fs::path& listFile, const std::string& relative) {
    const fs::path p = fs::path(relative).lexically_normal();
    const std::string first = p.begin() == p.end() ? "" : p.begin()->string();
    if (p.is_absolute() || (first != "machine" && first != "sites") || relative.find("..") != std::string::npos)
        bad(listFile, "'" + relative + "' is not a path below machine/ or sites/");
    return work / p;
}

bool endsWith(const std::string& s, const std::string& suffix) {
    return s.size() > suffix.size() && s.compare(s.size() - suffix.size(), suffix.size(), suffix) == 0;
}

// The scenarios' root above a layer's folder: the one holding bases/.
fs::path scenariosRoot(fs::path p) {
    while (p.has_parent_path() && p != p.parent_path() && !fs::is_directory(p / "bases")) p = p.parent_path();
    return p;
}

// "X.sig.sign" holds a key's name: it is written as "X.sig", the signature of
// its sibling X by the key scenarios/keys/NAME.pem (signed when the scenario is
// set up, so no signature is kept beside the list it signs).
void signFiles(const fs::path& folder, const fs::path& origin) {
    for (const auto& e : fs::recursive_directory_iterator(folder)) {
        const std::string name = e.path().filename().string();
        if (!e.is_regular_file() || !endsWith(name, ".sig.sign")) continue;
        std::string keyName = readFile(e.path());
        keyName.erase(std::remove_if(keyName.begin(), keyName.end(), [](char c) { return std::isspace(static_cast<unsigned char>(c)); }),
                      keyName.end());
        const fs::path key = scenariosRoot(origin) / "keys" / (keyName + ".pem");
        const fs::path signedFile = e.path().parent_path() / name.substr(0, name.size() - 9);
        if (!fs::exists(key) || !fs::exists(signedFile)) bad(origin, name + ": no key " + keyName + " or no file to sign");
        writeFile(e.path().parent_path() / name.substr(0, name.size() - 5),
                  catalog::SignatureFile(readFile(signedFile), readFile(key)));
        fs::remove(e.path());
    }
}

// An archive of a folder's files, made by the zip tool with fixed times so
// that the same folder always gives the same bytes.
void makeZip(const fs::path& folder, const fs::path& target, const fs::path& scratch) {
    const fs::path staging = scratch / "zip-staging";
    fs::remove_all(staging);
    fs::copy(folder, staging, fs::copy_options::recursive);
    signFiles(staging, folder);
    std::vector<std::string> names;
    for (const auto& e : fs::recursive_directory_iterator(staging))
        if (e.is_regular_file()) names.push_back(fs::relative(e.path(), staging).string());
    std::sort(names.begin(), names.end());
    auto quote = [](const std::string& s) {
        std::string q = "'";
        for (char c : s) q += c == '\'' ? std::string("'\\''") : std::string(1, c);
        return q + "'";
    };
    fs::create_directories(target.parent_path());
    fs::remove(target);
    std::string cmd = "cd " + quote(staging.string()) +
                      " && find . -exec touch -h -d '2026-01-01 00:00:00' {} + && zip -q -X -D " +
                      quote(fs::absolute(target).string());
    for (const auto& n : names) cmd += " " + quote(n);
    if (std::system(cmd.c_str()) != 0) bad(folder, "the zip tool could not make an archive of it");
    fs::remove_all(staging);
}

// INI keys of `changes` set into `text`: a key's first line in its section is
// replaced, a new key goes after the section's last line, a new section at
// the end; the file's own line ends are kept.
std::string setIniKeys(std::string text, const std::string& changes, const fs::path& from) {
    const std::string eol = text.find("\r\n") != std::string::npos || text.empty() ? "\r\n" : "\n";
    std::string section;
    size_t number = 0;
    for (const auto& change : platform::sim::scanIni(changes)) {
        ++number;
        using K = platform::sim::IniLine::Kind;
        if (change.kind == K::Section) section = change.name;
        if (change.kind == K::Other) bad(from, "line " + std::to_string(number) + " is neither a section nor a key");
        if (change.kind != K::Key) continue;
        const std::string line = change.name + "=" + change.value;
        bool inSection = false, done = false;
        size_t sectionEnd = std::string::npos;  // after the section's last non-blank line
        for (const auto& l : platform::sim::scanIni(text)) {
            if (l.kind == K::Section) {
                if (inSection) break;
                inSection = lower(l.name) == lower(section);
                if (inSection) sectionEnd = l.next;
                continue;
            }
            if (!inSection) continue;
            if (l.kind != K::Blank) sectionEnd = l.next;
            if (l.kind == K::Key && lower(l.name) == lower(change.name)) {
                text.replace(l.begin, l.end - l.begin, line);
                done = true;
                break;
            }
        }
        if (done) continue;
        if (sectionEnd == std::string::npos) {
            if (!text.empty() && text.back() != '\n') text += eol;
            text += "[" + section + "]" + eol + line + eol;
        } else {
            if (sectionEnd > 0 && text[sectionEnd - 1] != '\n') text.insert(sectionEnd, eol), sectionEnd += eol.size();
            text.insert(sectionEnd, line + eol);
        }
    }
    return text;
}

// Copies an overlay folder over the scratch one. Special names:
//   X.zip/      a folder: written as the zip archive X.zip of its files
//   X.encrypt   written encrypted with the agent's cipher as X
//   X.append    appended to X (registry.reg: later definitions win)
//   X.set       INI keys set into X
//   X.repeat    lines "COUNT TEXT": X is each TEXT written COUNT times, in order
//   .keep       only makes its folder
void copyOverlay(const fs::path& from, const fs::path& to, const fs::path& scratch) {
    fs::create_directories(to);
    for (auto it = fs::recursive_directory_iterator(from); it != fs::recursive_directory_iterator(); ++it) {
        const fs::path rel = fs::relative(it->path(), from);
        const fs::path dest = to / rel;
        const std::string name = it->path().filename().string();
        if (it->is_directory()) {
            if (endsWith(name, ".zip")) {
                makeZip(it->path(), dest, scratch);
                it.disable_recursion_pending();
            } else {
                fs::create_directories(dest);
            }
        } else if (name == ".keep") {
            fs::create_directories(dest.parent_path());
        } else if (endsWith(name, ".encrypt")) {
            std::string text = readFile(it->path());
            standins::cipherEncrypt(text, text.size());
            writeFile(dest.parent_path() / name.substr(0, name.size() - 8), text);
        } else if (endsWith(name, ".append")) {
            const fs::path target = dest.parent_path() / name.substr(0, name.size() - 7);
            writeFile(target, readFile(target) + readFile(it->path()));
        } else if (endsWith(name, ".set")) {
            const fs::path target = dest.parent_path() / name.substr(0, name.size() - 4);
            writeFile(target, setIniKeys(readFile(target), readFile(it->path()), it->path()));
        } else if (endsWith(name, ".repeat")) {
            // Lines "COUNT TEXT", in order: TEXT written COUNT times; \r, \n,
            // \0 and \\ in TEXT stand for those bytes.
            std::string text;
            for (const auto& line : listLines(it->path())) {
                const size_t blank = line.find(' ');
                const unsigned long count = std::strtoul(line.c_str(), nullptr, 10);
                if (blank == std::string::npos || count == 0 || count > 100'000'000 || blank + 1 >= line.size())
                    bad(it->path(), "'" + line + "' is not \"COUNT TEXT\"");
                std::string unit;
                for (size_t k = blank + 1; k < line.size(); ++k) {
                    if (line[k] != '\\' || k + 1 == line.size()) {
                        unit += line[k];
                        continue;
                    }
                    const char e = line[++k];
                    unit += e == 'r' ? '\r' : e == 'n' ? '\n' : e == '0' ? '\0' : e;
                }
                text.reserve(text.size() + unit.size() * count);
                for (unsigned long i = 0; i < count; ++i) text += unit;
            }
            writeFile(dest.parent_path() / name.substr(0, name.size() - 7), text);
        } else {
            fs::create_directories(dest.parent_path());
            fs::copy_file(it->path(), dest, fs::copy_options::overwrite_existing);
        }
    }
}

// One layer's or one pass's changes: machine/ and sites/ copied over,
// remove.txt's paths removed, attributes.txt's applied.
void applyOverlay(const fs::path& layer, const fs::path& work) {
    for (const char* part : {"machine", "sites"})
        if (fs::is_directory(layer / part)) copyOverlay(layer / part, work / part, work);
    if (fs::exists(layer / "remove.txt"))
        for (const auto& line : listLines(layer / "remove.txt")) fs::remove_all(workPath(work, layer / "remove.txt", line));
    if (fs::exists(layer / "attributes.txt")) {
        for (const auto& line : listLines(layer / "attributes.txt")) {
            const size_t blank = line.find(' ');
            const std::string what = line.substr(0, blank);
            if (blank == std::string::npos || (what != "read-only" && what != "writable"))
                bad(layer / "attributes.txt", "'" + line + "' is not 'read-only PATH' or 'writable PATH'");
            fs::permissions(workPath(work, layer / "attributes.txt", line.substr(blank + 1)), fs::perms::owner_write,
                            what == "writable" ? fs::perm_options::add : fs::perm_options::remove);
        }
    }
}

std::vector<sites::FaultRule> readFaults(const fs::path& file) {
    std::vector<sites::FaultRule> rules;
    size_t number = 0;
    for (const auto& line : splitLines(readFile(file))) {
        ++number;
        try {
            if (auto rule = sites::parseFaultLine(line)) rules.push_back(*rule);
        } catch (const std::invalid_argument& e) {
            bad(file, "line " + std::to_string(number) + ": " + e.what());
        }
    }
    return rules;
}

// The layers of a scenario, its first base first.
std::vector<fs::path> layersOf(const fs::path& root, const std::string& name) {
    std::vector<fs::path> layers;
    std::string at = name;
    while (true) {
        const fs::path folder = root / at;
        if (!fs::exists(folder / "scenario.ini")) bad(folder, "no scenario.ini here");
        if (std::count(layers.begin(), layers.end(), folder) || layers.size() > 16) bad(folder, "its bases go round in a circle");
        layers.insert(layers.begin(), folder);
        Settings own;
        readSettings(folder / "scenario.ini", own);
        const std::string base = own["scenario"].count("base") ? own["scenario"]["base"] : "bases/agent";
        if (base == "none") return layers;
        at = base;
    }
}

// Text shown line by line: CR LF line ends are not shown, a bare LF is shown
// as "<LF>", a missing last line end as "<no line end>", and other control
// bytes but tabs as \xNN.
std::vector<std::string> shownLines(const std::string& text) {
    std::vector<std::string> out;
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find('\n', start);
        const bool ended = end != std::string::npos;
        if (!ended) end = text.size();
        size_t stop = end;
        const bool crlf = ended && stop > start && text[stop - 1] == '\r';
        if (crlf) --stop;
        std::string line;
        for (size_t i = start; i < stop; ++i) {
            const unsigned char c = static_cast<unsigned char>(text[i]);
            if (c < 0x20 && c != '\t') {
                char hex[8];
                std::snprintf(hex, sizeof hex, "\\x%02X", c);
                line += hex;
            } else {
                line += static_cast<char>(c);
            }
        }
        if (!ended) line += "<no line end>";
        else if (!crlf) line += "<LF>";
        out.push_back(line);
        start = end + 1;
    }
    return out;
}

bool shownAsText(const std::string& content) {
    return content.size() <= 8192 && content.find('\0') == std::string::npos;
}

std::string md5Of(const std::string& content) {
    std::string error;
    auto hasher = standins::newMd5Hasher(error);
    unsigned char digest[16];
    if (!hasher || !hasher->update(reinterpret_cast<const unsigned char*>(content.data()), content.size()) ||
        !hasher->finish(digest))
        return "?";
    char hex[33];
    for (int i = 0; i < 16; ++i) std::snprintf(hex + 2 * i, 3, "%02x", digest[i]);
    return hex;
}

std::string sizeAndMd5(const std::string& content) {
    return std::to_string(content.size()) + " bytes, md5 " + md5Of(content);
}

// The files of the machine folder by their relative path, and its folders
// with a trailing "/". The machine's locks and its transfer folder are its
// own; what a transfer leaves in that folder is not.
std::map<std::string, std::string> snapshot(const fs::path& machine) {
    std::map<std::string, std::string> files;
    for (const auto& e : fs::recursive_directory_iterator(machine)) {
        const std::string rel = fs::relative(e.path(), machine).generic_string();
        if (rel.rfind(".mutex-", 0) == 0 || rel == ".transfers") continue;  // the machine's own
        if (e.is_directory()) files[rel + "/"] = "";
        else if (e.is_regular_file()) files[rel] = readFile(e.path());
    }
    return files;
}

// "drives/C/Program Files/x.ini" as the program names it: C:\Program Files\x.ini.
std::string shownPath(const std::string& rel) {
    if (rel.rfind("drives/", 0) != 0 || rel.size() < 9 || rel[8] != '/') return rel;
    std::string out = rel.substr(7, 1) + ":" + rel.substr(8);
    std::replace(out.begin(), out.end(), '/', '\\');
    return out;
}

bool isActivityLog(const std::string& rel) {
    const std::string suffix = "_patchlog.log";
    return rel.size() > suffix.size() && lower(rel.substr(rel.size() - suffix.size())) == suffix;
}

const std::string kStandardLog =
    "drives/C/Program Files/VORN/VORNMobile/BaseComponents/PatchManagement/ApplicationLog/"
    "wppatchmanagementDownload_R1_patchlog.log";

std::string joinLines(const std::vector<std::string>& lines) {
    std::string out;
    for (const auto& l : lines) out += l + "\n";
    return out;
}

// What the activity logs gained, and every other file the passes added,
// changed or removed.
void describeChanges(const std::map<std::string, std::string>& before, const std::map<std::string, std::string>& after,
                     Outputs& out) {
    std::vector<std::string> logs, changes;
    std::vector<std::string> paths;
    for (const auto& [p, _] : before) paths.push_back(p);
    for (const auto& [p, _] : after)
        if (!before.count(p)) paths.push_back(p);
    std::sort(paths.begin(), paths.end());
    size_t changedLogs = 0;
    for (const auto& p : paths) changedLogs += isActivityLog(p) && (!before.count(p) || !after.count(p) || before.at(p) != after.at(p));

    for (const auto& p : paths) {
        const auto b = before.find(p), a = after.find(p);
        if (b != before.end() && a != after.end() && b->second == a->second) continue;
        if (isActivityLog(p) && a != after.end()) {
            // A log that only grew shows what was appended; one started anew, all of it.
            const std::string& text = a->second;
            const bool grew = b != before.end() && text.compare(0, b->second.size(), b->second) == 0;
            if (changedLogs > 1 || p != kStandardLog) logs.push_back("== " + shownPath(p) + (grew ? " (appended)" : ""));
            else if (b != before.end() && !grew) logs.push_back("== started anew");
            for (const auto& l : shownLines(grew ? text.substr(b->second.size()) : text)) logs.push_back(l);
            continue;
        }
        if (a == after.end()) {
            changes.push_back("- " + shownPath(p));
        } else if (p.back() == '/') {
            changes.push_back("+ " + shownPath(p));
        } else if (b == before.end()) {
            if (!shownAsText(a->second)) {
                changes.push_back("+ " + shownPath(p) + " (" + sizeAndMd5(a->second) + ")");
                continue;
            }
            changes.push_back("+ " + shownPath(p));
            for (const auto& l : shownLines(a->second)) changes.push_back("  | " + l);
        } else if (!shownAsText(a->second) || !shownAsText(b->second)) {
            changes.push_back("~ " + shownPath(p) + " (" + sizeAndMd5(a->second) + ")");
        } else {
            changes.push_back("~ " + shownPath(p));
            for (const auto& l : lineDiff(shownLines(b->second), shownLines(a->second), 1)) changes.push_back("  " + l);
        }
    }
    out["log.txt"] = joinLines(logs);
    out["changes.txt"] = joinLines(changes);
}

// Every occurrence of `from` replaced.
void replaceAll(std::string& text, const std::string& from, const std::string& to) {
    for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
        text.replace(at, from.size(), to);
}

// Pairs replaced longest first, so that "site:manage2" is never read as
// "site:manage" followed by "2".
void replaceEach(std::string& text, std::vector<std::pair<std::string, std::string>> pairs) {
    std::sort(pairs.begin(), pairs.end(), [](const auto& a, const auto& b) { return a.first.size() > b.first.size(); });
    for (const auto& [from, to] : pairs) replaceAll(text, from, to);
}

// "site:NAME" in machine.ini stands for the address the site listens on.
void mapSites(const fs::path& machineIni, const std::map<std::string, int>& ports) {
    if (!fs::exists(machineIni)) return;
    std::string text = readFile(machineIni);
    const std::string original = text;
    std::vector<std::pair<std::string, std::string>> pairs;
    for (const auto& [name, port] : ports) pairs.emplace_back("site:" + name, "127.0.0.1:" + std::to_string(port));
    replaceEach(text, pairs);
    if (text != original) writeFile(machineIni, text);
}

struct Pass {
    std::string now;
    fs::path overlay;  // passN/ for N >= 2; may not exist
};

// Runs the program once on the machine folder; what the end was.
std::string runPass(const fs::path& machine, const Pass& pass) {
    platform::sim::OpenOptions options;
    platform::DateTime now;
    if (!platform::parseIsoDateTime(pass.now, now)) throw std::runtime_error("'" + pass.now + "' is not YYYY-MM-DDTHH:MM:SS");
    options.now = now;
    options.frozenClock = true;
    std::unique_ptr<platform::sim::SimMachine> m;
    try {
        m = platform::sim::SimMachine::open(machine, options);
    } catch (const platform::sim::MachineError& e) {
        return std::string("the machine folder was refused: ") + e.what();
    }
    platform::setHost(m.get());
    kpm::resetProcessState();
    std::string end = "returned from Main without ending the process";
    try {
        kpm::Main();
    } catch (const platform::ProcessEnd& e) {
        end = "exit code " + std::to_string(e.exitCode);
    } catch (const std::exception& e) {
        end = std::string("failed: ") + e.what();
    }
    platform::setHost(nullptr);
    return end;
}

std::atomic<int> g_scratchCounter{0};

}  // namespace

std::vector<std::string> list(const fs::path& root) {
    std::vector<std::string> out;
    if (!fs::is_directory(root)) return out;
    for (const auto& group : fs::directory_iterator(root)) {
        if (!group.is_directory() || group.path().filename() == "bases") continue;
        for (const auto& c : fs::directory_iterator(group.path()))
            if (fs::exists(c.path() / "scenario.ini"))
                out.push_back(group.path().filename().string() + "/" + c.path().filename().string());
    }
    std::sort(out.begin(), out.end());
    return out;
}

Outputs run(const fs::path& root, const std::string& name) {
    const std::vector<fs::path> layers = layersOf(root, name);
    Settings settings;
    for (const auto& layer : layers) readSettings(layer / "scenario.ini", settings);

    const char* tmp = std::getenv("TMPDIR");
    const fs::path work = fs::path(tmp && *tmp ? tmp : "/tmp") / "kpm-scenarios" /
                          (std::to_string(::getpid()) + "-" + std::to_string(g_scratchCounter++));
    fs::remove_all(work);
    struct Cleanup {
        fs::path dir;
        ~Cleanup() {
            if (std::getenv("KPM_KEEP_MACHINES")) return;
            std::error_code ec;
            fs::permissions(dir, fs::perms::owner_all, fs::perm_options::add, ec);
            for (auto it = fs::recursive_directory_iterator(dir, ec); it != fs::recursive_directory_iterator(); it.increment(ec))
                fs::permissions(it->path(), fs::perms::owner_write, fs::perm_options::add, ec);
            fs::remove_all(dir, ec);
        }
    } cleanup{work};
    fs::create_directories(work / "machine");
    fs::create_directories(work / "sites");

    std::vector<sites::FaultRule> faults;
    for (const auto& layer : layers) {
        applyOverlay(layer, work);
        if (fs::exists(layer / "faults.txt")) {
            auto more = readFaults(layer / "faults.txt");
            faults.insert(faults.end(), more.begin(), more.end());
        }
    }

    // The passes: one at each moment of Passes=, passN/ applied before the Nth.
    std::vector<Pass> passes;
    {
        std::string moments = settings["scenario"]["passes"];
        std::istringstream in(moments);
        for (std::string moment; std::getline(in, moment, ',');) {
            const size_t first = moment.find_first_not_of(' ');
            if (first == std::string::npos) continue;
            moment = moment.substr(first, moment.find_last_not_of(' ') - first + 1);
            passes.push_back({moment, layers.back() / ("pass" + std::to_string(passes.size() + 1))});
        }
        if (passes.empty()) bad(layers.back() / "scenario.ini", "no moment in [Scenario] Passes=");
    }

    // The sites: every folder of sites/, and the proxy.
    sites::Config config;
    for (const auto& e : fs::directory_iterator(work / "sites"))
        if (e.is_directory()) config.sites.push_back({e.path().filename().string(), e.path(), 0, {}});
    std::sort(config.sites.begin(), config.sites.end(),
              [](const sites::SiteConfig& x, const sites::SiteConfig& y) { return x.name < y.name; });
    sites::ProxyConfig proxy;
    proxy.credentials = settings["proxy"]["credentials"];
    for (const auto& [host, site] : settings["proxyhosts"]) proxy.siteHosts[host] = site;
    config.proxy = proxy;
    // [Tls] SITE=HOST,...: the site speaks HTTPS with a certificate for those
    // names; the machine finds the authority's root as local-sites-ca.pem.
    for (const auto& [site, hosts] : settings["tls"]) {
        auto named = std::find_if(config.sites.begin(), config.sites.end(),
                                  [&](const sites::SiteConfig& c) { return lower(c.name) == site; });
        if (named == config.sites.end()) bad(layers.back() / "scenario.ini", "[Tls] names no site: " + site);
        std::stringstream list(hosts);
        for (std::string host; std::getline(list, host, ',');)
            if (!host.empty()) named->tlsNames.push_back(host);
        config.authority = work.parent_path() / "authority";
    }
    sites::SitesServer server(config);
    server.start();
    if (!config.authority.empty())
        fs::copy_file(config.authority / "ca.pem", work / "machine" / "local-sites-ca.pem",
                      fs::copy_options::overwrite_existing);
    std::map<std::string, int> ports;
    for (const auto& s : config.sites) ports[s.name] = server.port(s.name);
    ports["proxy"] = server.port("proxy");
    for (const auto& rule : faults) server.setFault(rule.site, rule.path, rule.fault);
    mapSites(work / "machine" / "machine.ini", ports);

    const auto before = snapshot(work / "machine");
    std::vector<std::string> ends;
    bool unusual = false;
    for (size_t i = 0; i < passes.size(); ++i) {
        const Pass& pass = passes[i];
        if (i > 0 && fs::is_directory(pass.overlay)) {
            applyOverlay(pass.overlay, work);
            mapSites(work / "machine" / "machine.ini", ports);
            if (fs::exists(pass.overlay / "faults.txt")) {
                server.clearFaults();
                for (const auto& rule : readFaults(pass.overlay / "faults.txt")) server.setFault(rule.site, rule.path, rule.fault);
            }
        }
        const std::string end = runPass(work / "machine", pass);
        unusual = unusual || end != "exit code 0";
        ends.push_back("pass " + std::to_string(i + 1) + " at " + pass.now + ": " + end);
    }
    const auto after = snapshot(work / "machine");
    server.stop();

    Outputs out;
    out["ends.txt"] = unusual ? joinLines(ends) : "";
    describeChanges(before, after, out);
    std::vector<std::string> requests, posts;
    auto answered = server.requests();
    std::stable_sort(answered.begin(), answered.end(), [](const auto& a, const auto& b) { return a.arrival < b.arrival; });
    for (const auto& r : answered)
        requests.push_back(r.site + " " + r.method + " " + r.host + " " + r.path + (r.query.empty() ? "" : "?" + r.query) +
                           " " + std::to_string(r.status) + " " + std::to_string(r.bytes));
    for (const auto& p : server.posts()) {
        const bool encrypted = p.document != p.body;
        posts.push_back("== " + p.site + " " + p.path + (p.query.empty() ? "" : "?" + p.query) + " (" + p.kind +
                        (encrypted ? ", encrypted" : "") + ")");
        for (const auto& l : shownLines(encrypted && p.document.empty() ? p.body : p.document)) posts.push_back(l);
    }
    out["requests.txt"] = joinLines(requests);
    out["posts.txt"] = joinLines(posts);

    // Addresses of this run's sites read as the sites' names; the scratch folder as <scratch>.
    std::vector<std::pair<std::string, std::string>> names{{work.string(), "<scratch>"}};
    for (const auto& [site, port] : ports) names.emplace_back("127.0.0.1:" + std::to_string(port), "site:" + site);
    for (auto& [_, text] : out) replaceEach(text, names);
    return out;
}

}  // namespace kpmtest::scenario

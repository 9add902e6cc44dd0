#include "platform/sim/sim_system.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <fstream>

#include "platform/automation.h"
#include "platform/errors.h"
#include "platform/sim/sim_automation.h"
#include "platform/sim/sim_files.h"
#include "platform/sim/sim_state.h"

namespace platform::sim {

namespace {

// Programs of a Windows installation the machine folders need not carry.
constexpr std::string_view kSystemPrograms[] = {
    "attrib.exe", "cmd.exe",    "cscript.exe", "expand.exe",   "msiexec.exe", "net.exe",
    "net1.exe",   "netsh.exe",  "reg.exe",     "regedit.exe",  "regsvr32.exe", "rundll32.exe",
    "sc.exe",     "schtasks.exe", "taskkill.exe", "wscript.exe", "wuauclt.exe", "wusa.exe",
    "xcopy.exe",
};

std::string folderOf(const std::string& path) {
    size_t cut = path.find_last_of('\\');
    return cut == std::string::npos ? std::string() : path.substr(0, cut + 1);
}

// A command line's words as a program's argument parser sees them: blanks
// separate, double quotes group (and are dropped).
std::vector<std::string> words(std::string_view commandLine) {
    std::vector<std::string> out;
    std::string word;
    bool quoted = false, any = false;
    for (char c : commandLine) {
        if (c == '"') {
            quoted = !quoted;
            any = true;
        } else if ((c == ' ' || c == '\t') && !quoted) {
            if (any) out.push_back(word);
            word.clear();
            any = false;
        } else {
            word += c;
            any = true;
        }
    }
    if (any) out.push_back(word);
    return out;
}

}  // namespace

SimSystem::SimSystem(MachineState& state, SimFiles& files, Registry& registry)
    : state_(state), files_(files), registry_(registry) {}

uint32_t SimSystem::codePage() { return state_.codePage.number(); }
std::u16string SimSystem::toUtf16(std::string_view ansi) { return state_.codePage.toUtf16(ansi); }
std::string SimSystem::toAnsi(std::u16string_view text) { return state_.codePage.toAnsi(text); }
std::u16string SimSystem::upcase(std::u16string_view text) { return CodePage::upcase(text); }

SimSystem::~SimSystem() {
    for (auto& m : mutexes_) ::close(m.second);  // closing releases the lock
}

bool SimSystem::getComputerName(std::string& buffer, uint32_t& size) {
    const std::string& name = state_.config.computerName;
    const auto length = static_cast<uint32_t>(name.size());
    if (size < length + 1) {
        size = length + 1;
        state_.lastError = win32::BufferOverflow;
        return false;
    }
    if (buffer.size() < size) buffer.resize(size, '\0');
    std::copy(name.begin(), name.end(), buffer.begin());
    buffer[length] = '\0';
    size = length;
    return true;
}

std::string SimSystem::exePath() { return state_.config.exePath; }

std::string SimSystem::systemDirectory() { return state_.config.systemDirectory; }

bool SimSystem::getVersion(OsVersion& out) {
    out = state_.config.os;
    return true;
}

bool SimSystem::is64BitWindows() { return state_.config.is64BitOS; }

uint32_t SimSystem::lastError() { return state_.lastError; }

void SimSystem::setLastError(uint32_t code) { state_.lastError = code; }

bool SimSystem::acquireSingleInstance(std::string_view name) {
    constexpr uint32_t kAlreadyExists = 183;
    for (const auto& m : mutexes_)
        if (iequals(m.first, name)) {
            state_.lastError = kAlreadyExists;
            return false;
        }
    // Mutex names may hold "Global\" and such: keep the file name plain.
    std::string file = ".mutex-";
    for (char c : name) file += std::isalnum(static_cast<unsigned char>(c)) || c == '-' || c == '.' ? c : '_';
    int fd = ::open((state_.folder / file).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0) {
        state_.lastError = win32::AccessDenied;
        return false;
    }
    if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
        ::close(fd);
        state_.lastError = kAlreadyExists;
        return false;
    }
    mutexes_.emplace_back(std::string(name), fd);
    return true;
}

bool SimSystem::fileFound(std::string name) {
    size_t slash = name.find_last_of("\\/");
    if (name.find('.', slash == std::string::npos ? 0 : slash) == std::string::npos) name += ".exe";
    if (name.find_first_of("\\/:") != std::string::npos) return files_.fileExists(name);
    const std::string system = state_.config.systemDirectory;
    for (const std::string& folder : {folderOf(state_.config.exePath), system + "\\", folderOf(system)})
        if (!folder.empty() && files_.fileExists(folder + name)) return true;
    for (auto p : kSystemPrograms)
        if (iequals(p, name)) return true;
    return false;
}

bool SimSystem::programExists(std::string_view commandLine) {
    while (!commandLine.empty() && (commandLine.front() == ' ' || commandLine.front() == '\t'))
        commandLine.remove_prefix(1);
    if (commandLine.empty()) return false;
    if (commandLine.front() == '"') {
        size_t close = commandLine.find('"', 1);
        return fileFound(std::string(commandLine.substr(1, close == std::string_view::npos ? close : close - 1)));
    }
    for (size_t blank = commandLine.find(' '); blank != std::string_view::npos;
         blank = commandLine.find(' ', blank + 1))
        if (fileFound(std::string(commandLine.substr(0, blank)))) return true;
    return fileFound(std::string(commandLine));
}

bool SimSystem::startHidden(std::string_view commandLine) {
    if (!programExists(commandLine)) {
        state_.lastError = win32::FileNotFound;
        return false;
    }
    std::ofstream log(state_.folder / "started-processes.log", std::ios::binary | std::ios::app);
    log << commandLine << '\n';
    log.close();
    if (!log) {
        state_.lastError = win32::AccessDenied;
        return false;
    }
    runRegsvr32(commandLine);
    return true;
}

// What regsvr32 does once started: registers each DLL it is given (its
// options: /s keeps it silent; with /u nothing is registered, nor removed).
void SimSystem::runRegsvr32(std::string_view commandLine) {
    std::vector<std::string> args = words(commandLine);
    if (args.empty()) return;
    const size_t slash = args[0].find_last_of("\\/");
    const std::string program = slash == std::string::npos ? args[0] : args[0].substr(slash + 1);
    if (!iequals(program, "regsvr32.exe") && !iequals(program, "regsvr32")) return;
    std::vector<std::string> dlls;
    for (size_t i = 1; i < args.size(); ++i) {
        const std::string& a = args[i];
        if (!a.empty() && (a[0] == '/' || a[0] == '-')) {
            if (a.size() > 1 && (a[1] == 'u' || a[1] == 'U')) return;
        } else {
            dlls.push_back(a);
        }
    }
    const uint32_t saved = state_.lastError;  // another process's doing
    for (const auto& dll : dlls) registerComServer(registry_, files_, dll);
    state_.lastError = saved;
}

void SimSystem::endProcess(int exitCode) { throw ProcessEnd{exitCode}; }

}  // namespace platform::sim

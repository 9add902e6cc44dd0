#include "support/test_machine.h"

#include <atomic>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <unistd.h>

#include "driver/main.h"
#include "platform/host.h"
#include "standins/cipher.h"
#include "standins/served_classes.h"

namespace kpmtest {

namespace fs = std::filesystem;

platform::DateTime at(const char* iso) {
    platform::DateTime t;
    if (!platform::parseIsoDateTime(iso, t)) throw std::invalid_argument(iso);
    return t;
}

std::string readHostFile(const fs::path& p) {
    std::ifstream in(p, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

namespace {

std::atomic<int> g_counter{0};

void writeHostFile(const fs::path& p, const std::string& content) {
    fs::create_directories(p.parent_path());
    std::ofstream out(p, std::ios::binary);
    out << content;
}

const char* kMachineIni =
    "[Machine]\r\n"
    "ExePath=C:\\Program Files\\VORN\\VORNMobile\\BaseComponents\\PatchManagement\\KPMDwld.exe\r\n"
    "ComputerName=demo-pc\r\n"
    "Is64BitOS=1\r\n"
    "[Processes]\r\n"
    "1=System\r\n"
    "2=explorer.exe\r\n";

const char* kAgentIni =
    "[ProxySettings]\r\n"
    "ProxyIP=\r\n"
    "ProxyPort=\r\n"
    "ProxyUserName=\r\n"
    "ProxyPassword=\r\n"
    "IsEncrypt=1\r\n"
    "[DCConnURL]\r\n"
    "ControllerPSite=http://127.0.0.1:18080\r\n"
    "ControllerSSite=http://127.0.0.1:18081/\r\n"
    "[VornUpdates]\r\n"
    "DownLoadSite=http://127.0.0.1:18082/updates\r\n"
    "[Download]\r\n"
    "PMDownload=http://127.0.0.1:18082/pm\r\n";

}  // namespace

const char* const kWebPostConfig =
    "<?xml version=\"1.0\"?>\r\n"
    "<wpconfig>\r\n"
    "  <fod name=\"NDATAPOST\">\r\n"
    "    <PR4>\r\n"
    "      <doc key=\"wppthdwldinfo\" ext=\"asp\" root=\"wppthdwldinfo\" x=\"\" https=\"0\" p1=\"127.0.0.1:18080\" "
    "s1=\"127.0.0.1:18081\" pair=\"0\" p2=\"\" s2=\"\" enc=\"0\"/>\r\n"
    "      <doc key=\"wppthmsbbllist\" ext=\"asp\" root=\"wppthmsbbllist\" x=\"\" https=\"0\" p1=\"127.0.0.1:18080\" "
    "s1=\"127.0.0.1:18081\" pair=\"0\" p2=\"\" s2=\"\" enc=\"0\"/>\r\n"
    "    </PR4>\r\n"
    "  </fod>\r\n"
    "</wpconfig>\r\n";

void TestMachine::writeWebPostConfig(const std::string& plainXml) {
    std::string text = plainXml;
    standins::cipherEncrypt(text, text.size());
    writeFile(std::string(kInstallPath) + "Configuration\\wpConfig.xml", text);
}

std::string TestMachine::agentRegistry(const std::string& extraValues) {
    return "Windows Registry Editor Version 5.00\r\n\r\n"
           "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Wow6432Node\\VORNOD]\r\n"
           "\"InstallationPath\"=\"C:\\\\Program Files\\\\VORN\\\\VORNMobile\"\r\n"
           "\"regID\"=\"R1\"\r\n"
           "\"SiteID\"=\"S1\"\r\n"
           "\"MemberID\"=\"M1\"\r\n"
           "\"Type\"=\"W\"\r\n" +
           extraValues + "\r\n" + componentRegistry();
}

std::string TestMachine::componentRegistry() {
    std::string reg;
    for (const auto& c : standins::kServedClasses) {
        if (c.dll.empty()) continue;
        const std::string progId(c.progId), clsid(c.clsid);
        reg += "[HKEY_CLASSES_ROOT\\" + progId + "\\CLSID]\r\n@=\"" + clsid + "\"\r\n\r\n" +
               "[HKEY_CLASSES_ROOT\\Wow6432Node\\CLSID\\" + clsid + "\\InprocServer32]\r\n" +
               "@=\"C:\\\\Program Files\\\\VORN\\\\VORNMobile\\\\" + std::string(c.dll) + "\"\r\n\r\n";
    }
    return reg;
}

void TestMachine::writeComponentFiles() {
    for (const auto& c : standins::kServedClasses)
        if (!c.dll.empty()) writeFile(std::string(kInstallPath) + std::string(c.dll), "MZ stand-in");
}

TestMachine::TestMachine(bool bare) {
    const char* tmp = std::getenv("TMPDIR");
    fs::path base = fs::path(tmp && *tmp ? tmp : "/tmp") / "kpm-test-machines";
    root_ = base / (std::to_string(::getpid()) + "-" + std::to_string(g_counter++));
    fs::remove_all(root_);
    fs::create_directories(root_ / "drives" / "C");
    setMachineIni(kMachineIni);
    if (bare) {
        setRegistry("Windows Registry Editor Version 5.00\r\n\r\n");
        return;
    }
    setRegistry(agentRegistry());
    makeFolder(kProgramFolder);
    makeFolder("C:\\WINDOWS\\system32");
    writeComponentFiles();
    writeFile(std::string(kInstallPath) + "VORNMobile.ini", kAgentIni);
    writeWebPostConfig(kWebPostConfig);
}

TestMachine::~TestMachine() {
    close();
    if (!std::getenv("KPM_KEEP_MACHINES")) {
        std::error_code ec;
        fs::remove_all(root_, ec);
    }
}

fs::path TestMachine::hostPath(const std::string& windowsPath) const {
    // Tests name files with their exact case, so a plain mapping will do.
    std::string p = windowsPath;
    if (p.size() < 2 || p[1] != ':') throw std::invalid_argument("not a drive path: " + p);
    fs::path out = root_ / "drives" / std::string(1, static_cast<char>(std::toupper(p[0])));
    std::string rest = p.substr(2);
    std::string part;
    for (char c : rest + "\\") {
        if (c == '\\') {
            if (!part.empty()) out /= part;
            part.clear();
        } else {
            part += c;
        }
    }
    return out;
}

void TestMachine::setRegistry(const std::string& regText) { writeHostFile(root_ / "registry.reg", regText); }
void TestMachine::setMachineIni(const std::string& text) { writeHostFile(root_ / "machine.ini", text); }
void TestMachine::writeFile(const std::string& w, const std::string& content) { writeHostFile(hostPath(w), content); }
void TestMachine::makeFolder(const std::string& w) { fs::create_directories(hostPath(w)); }
void TestMachine::removeFile(const std::string& w) { fs::remove(hostPath(w)); }

platform::sim::SimMachine& TestMachine::open(const platform::DateTime& now) {
    close();
    platform::sim::OpenOptions options;
    options.now = now;
    options.frozenClock = true;
    machine_ = platform::sim::SimMachine::open(root_, options);
    platform::setHost(machine_.get());
    kpm::resetProcessState();
    return *machine_;
}

void TestMachine::close() {
    if (machine_) {
        platform::setHost(nullptr);
        machine_.reset();
    }
}

int TestMachine::runPass(const platform::DateTime& now) {
    open(now);
    int code = -1;
    try {
        kpm::Main();
    } catch (const platform::ProcessEnd& end) {
        code = end.exitCode;
    }
    close();
    return code;
}

bool TestMachine::exists(const std::string& w) const { return fs::exists(hostPath(w)); }
std::string TestMachine::read(const std::string& w) const { return readHostFile(hostPath(w)); }
std::string TestMachine::registryText() const { return readHostFile(root_ / "registry.reg"); }

std::vector<std::string> TestMachine::logLines() const {
    std::vector<std::string> lines;
    std::string text = read(kLogPath);
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find("\r\n", start);
        if (end == std::string::npos) {
            lines.push_back(text.substr(start) + "<no CRLF>");
            break;
        }
        lines.push_back(text.substr(start, end - start));
        start = end + 2;
    }
    return lines;
}

std::vector<std::vector<std::string>> TestMachine::logEntries() const {
    std::vector<std::vector<std::string>> entries;
    for (const auto& line : logLines()) {
        if (!line.empty() && line[0] == '#') continue;
        std::vector<std::string> fields;
        size_t start = 0;
        while (true) {
            size_t tab = line.find('\t', start);
            fields.push_back(line.substr(start, tab == std::string::npos ? std::string::npos : tab - start));
            if (tab == std::string::npos) break;
            start = tab + 1;
        }
        entries.push_back(fields);
    }
    return entries;
}

std::vector<std::string> TestMachine::logMessages() const {
    std::vector<std::string> out;
    for (const auto& fields : logEntries()) {
        std::string joined;
        for (size_t i = 1; i < fields.size(); ++i) joined += (i > 1 ? "|" : "") + fields[i];
        out.push_back(joined);
    }
    return out;
}

}  // namespace kpmtest

#include "big_machine.h"

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "platform/host.h"
#include "platform/sim/sim_machine.h"

namespace kpmbench {

namespace fs = std::filesystem;

namespace {

const char* const kOs = "Microsoft Windows 7 Professional,Service Pack 1,";  // what the machine's probe finds
const std::string kMsDir = "/d/msdownload/update/software/secu/2026/10/";

// Fixed-width numbers: no file name is a part of another, so the clean-up's
// substring test keeps exactly the files listed.
std::string fileName(int series, int n) {
    char buf[48];
    std::snprintf(buf, sizeof buf, "w10-kb%d%06d-x64.msu", series, n);
    return buf;
}
std::string kb(int j) { return std::to_string(5000000 + j); }
std::string classification(int c) { return "Classification " + std::to_string(c); }
std::string product(int p) { return "Product " + std::to_string(p); }
bool blackListed(int j) { return j % 25 == 0; }

std::string content(const std::string& name) {
    return "<content url=\"http://download.windowsupdate.com" + kMsDir + name + "\"/>";
}

fs::path logFile(const fs::path& machine) {
    return machine / "drives" / "C" / "Program Files" / "VORN" / "VORNMobile" / "BaseComponents" /
           "PatchManagement" / "ApplicationLog" / "wppatchmanagementDownload_R1_patchlog.log";
}

void writeText(const fs::path& p, const std::string& text) {
    fs::create_directories(p.parent_path());
    std::ofstream(p, std::ios::binary) << text;
}

}  // namespace

Shape doubled(const Shape& s, const std::string& d) {
    Shape out = s;
    const bool all = d == "all";
    if (all || d == "updates") out.updates *= 2;
    if (all || d == "upcls") out.upcls *= 2;
    if (all || d == "products") out.products *= 2;
    if (all || d == "blacklist") out.blackList *= 2;
    if (all || d == "files") out.files *= 2;
    if (all || d == "lines") out.lines *= 2;
    out.label = "2x " + d;
    return out;
}

void buildBigMachine(kpmtest::DownloadMachine& m, const Shape& s) {
    const std::string manage = "=127.0.0.1:" + std::to_string(m.sites().port("manage")) + "\r\n";
    m.writeMachineIni("127.0.0.1:18080" + manage + "127.0.0.1:18081" + manage);
    m.serve("manage", "/wppthmsbbllist.txt", "0");
    m.serve("manage", "/wppthdwldinfo.txt", "1");

    // Each element one classification, every element the same products.
    std::string products;
    for (int p = 0; p < s.products; ++p) products += (p ? "#@#" : "") + product(p);
    std::string upcls;
    for (int c = 0; c < s.upcls; ++c)
        upcls += "<upcls a=\"" + classification(c) + "\" b=\"BL\" c=\"" + products + "\"/>";
    m.writeMsSchedule(upcls);

    // Files the selected updates' contents name (kept), and stale ones.
    const int kept = std::min(s.lines - s.downloads, s.files * 9 / 10);
    const fs::path components = m.hostPath(kpmtest::kComponents);
    fs::create_directories(components);
    const std::string body(512, 'p');
    for (int i = 0; i < s.files; ++i)
        writeText(components / (i < kept ? fileName(1, i) : fileName(2, i)), body);
    for (int i = 0; i < s.downloads; ++i) m.serve("gateway", "/pm/" + fileName(3, i), body);

    // Every update matches one element and one product. Contents are spread
    // over the updates that pass the black list; every tenth is a bundle.
    const int selected = s.updates - (s.updates + 24) / 25;
    std::string catalog = "<updates>";
    int k = 0, staleName = kept;
    for (int j = 0; j < s.updates; ++j) {
        std::string inner;
        if (blackListed(j)) {
            inner = content(fileName(2, staleName < s.files ? staleName++ : kept));
        } else {
            for (long i = static_cast<long>(k) * s.lines / selected; i < static_cast<long>(k + 1) * s.lines / selected; ++i)
                inner += content(i < s.downloads ? fileName(3, static_cast<int>(i))
                                                 : fileName(1, static_cast<int>((i - s.downloads) % kept)));
            ++k;
        }
        if (j % 10 == 5) inner = "<update id=\"b" + std::to_string(j) + "\" deployed=\"2026-10-14\">" + inner + "</update>";
        catalog += "<update id=\"u" + std::to_string(j) + "\" revision=\"201\" deployed=\"2026-10-14\" title=\"KB" +
                   kb(j) + "\"><kb>" + kb(j) + "</kb><category type=\"UpdateClassification\" name=\"" +
                   classification(j % s.upcls) + "\"/><category type=\"Product\" name=\"" +
                   product(j / s.upcls % s.products) + "\"/>" + inner + "</update>";
    }
    writeText(m.root() / "update-catalog.xml", catalog + "</updates>");

    // Other systems' entries, with this system's entries for the black-listed
    // updates spread among them; dated after every update.
    const int ours = (s.updates + 24) / 25;
    const int every = std::max(1, s.blackList / std::max(1, ours));
    std::string list;
    for (int n = 0, j = 0; n < s.blackList; ++n) {
        if (n % every == every / 2 && j < s.updates) {
            list += std::string(kOs) + kb(j) + "\r\n";
            j += 25;
        } else {
            list += "Microsoft Windows Server 2008 R2 Standard,Service Pack 1," + std::to_string(4000000 + n) + "\r\n";
        }
    }
    m.serve("gateway", "/wblist/PatchBlackList.txt", list + "release date=11/01/2026\r\n");
}

void copyMachine(const fs::path& from, const fs::path& to) {
    fs::remove_all(to);
    fs::create_directories(to);
    for (const auto& e : fs::directory_iterator(from))
        if (e.path().filename() != "sites")
            fs::copy(e.path(), to / e.path().filename(), fs::copy_options::recursive);
}

PassRun runSimPass(const std::string& simExe, const fs::path& machine, const std::string& now) {
    PassRun run;
    const auto start = std::chrono::steady_clock::now();
    const pid_t pid = fork();
    if (pid < 0) throw std::runtime_error("fork failed");
    if (pid == 0) {
        // KPM_BENCH_WRAPPER, e.g. "valgrind --tool=callgrind", runs the pass under a profiler.
        std::vector<std::string> args;
        if (const char* w = std::getenv("KPM_BENCH_WRAPPER")) {
            std::istringstream words(w);
            for (std::string word; words >> word;) args.push_back(word);
        }
        for (const std::string& a : {simExe, std::string("--now"), now, machine.string()}) args.push_back(a);
        std::vector<char*> argv;
        for (auto& a : args) argv.push_back(a.data());
        argv.push_back(nullptr);
        execvp(argv[0], argv.data());
        _exit(127);
    }
    int status = 0;
    rusage usage{};
    wait4(pid, &status, 0, &usage);
    run.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    run.peakKB = usage.ru_maxrss;
    run.cpuSeconds = static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
                     static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
    run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return run;
}

std::vector<std::string> logEntryLines(const fs::path& machine) {
    std::ifstream in(logFile(machine), std::ios::binary);
    std::vector<std::string> lines;
    for (std::string l; std::getline(in, l);)
        if (!l.empty() && l[0] != '#') lines.push_back(l + "\n");
    return lines;
}

double simAppendFloor(const fs::path& machine, const std::vector<std::string>& lines) {
    fs::remove(logFile(machine));
    auto sim = platform::sim::SimMachine::open(machine, {});
    platform::setHost(sim.get());
    const auto start = std::chrono::steady_clock::now();
    for (const std::string& line : lines) platform::files().append(kpmtest::kLogPath, line);
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    platform::setHost(nullptr);
    return seconds;
}

double simWritesFloor(const fs::path& machine, const std::vector<std::string>& logLines) {
    const std::string listPath = std::string(kpmtest::kInstallPath) + "BaseComponents\\PatchManagement\\DwldURL.txt";
    const std::string iniPath = std::string(kpmtest::kInstallPath) + "BaseComponents\\PatchManagement\\Components\\DownloadStatus.ini";
    auto sim = platform::sim::SimMachine::open(machine, {});
    // What the pass wrote: the download list's lines and the status INI's keys.
    std::vector<std::string> listLines;
    std::vector<std::pair<std::string, std::string>> keys;  // section, key=value
    {
        std::istringstream list(kpmtest::readHostFile(sim->hostPath(listPath)));
        for (std::string line; std::getline(list, line);) listLines.push_back(line.substr(0, line.find('\r')));
        std::istringstream ini(kpmtest::readHostFile(sim->hostPath(iniPath)));
        std::string section;
        for (std::string line; std::getline(ini, line);) {
            line = line.substr(0, line.find('\r'));
            if (!line.empty() && line[0] == '[') section = line.substr(1, line.find(']') - 1);
            else if (line.find('=') != std::string::npos) keys.emplace_back(section, line);
        }
    }
    sim.reset();
    fs::remove(logFile(machine));
    fs::remove(platform::sim::SimMachine::open(machine, {})->hostPath(listPath));
    fs::remove(platform::sim::SimMachine::open(machine, {})->hostPath(iniPath));
    sim = platform::sim::SimMachine::open(machine, {});
    platform::setHost(sim.get());
    const auto start = std::chrono::steady_clock::now();
    // Each made the way the pass makes it: an open-append-close per log entry
    // and per list line, a profile write per INI key.
    for (const std::string& line : logLines) platform::files().append(kpmtest::kLogPath, line);
    platform::files().writeAll(listPath, "");
    for (const std::string& line : listLines) platform::files().append(listPath, line + "\r\n");
    for (const auto& [section, pair] : keys)
        platform::profile().writeString(section, pair.substr(0, pair.find('=')), pair.substr(pair.find('=') + 1), iniPath);
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    platform::setHost(nullptr);
    return seconds;
}

}  // namespace kpmbench

#include "download_machine.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace kpmtest {

namespace fs = std::filesystem;

namespace {

// "manage" answers the agent's posts; a test maps the web-post addresses to it when it wants answers.
const char* const kSites[] = {"gateway", "dc", "updates", "microsoft", "manage"};

// The Microsoft schedule: every day 16:00 to 17:00, downloads enabled.
std::string msSchedule(const std::string& upcls = "<upcls a=\"Security Updates\" b=\"BL\" c=\"Windows 7\"/>",
                       const std::string& gatewayFlag = "") {
    const char* values[] = {"1", "", "0", "1,2,3,4,5,6,7", "16:00", "17:00"};
    std::string xml = "<patchmanagement><autopatchdeploy>";
    for (int i = 0; i < 28; ++i)
        xml += "<c" + std::to_string(i) + ">" + (i < 6 ? values[i] : "") + "</c" + std::to_string(i) + ">";
    xml += gatewayFlag.empty() ? "<c28></c28>" : "<AlwaysDwnldGateway>" + gatewayFlag + "</AlwaysDwnldGateway>";
    return xml + "</autopatchdeploy>" + upcls + "</patchmanagement>";
}

}  // namespace

DownloadMachine::DownloadMachine(bool downloadDay) {
    sites::Config config;
    for (const char* name : kSites) {
        fs::create_directories(root() / "sites" / name);
        config.sites.push_back({name, root() / "sites" / name, 0, {}});
    }
    config.proxy = sites::ProxyConfig{0, kProxyCredentials, {{"www.microsoft.com", "microsoft"},
                                                             {"download.windowsupdate.com", "microsoft"},
                                                             {"gateway.corp.lan", "gateway"}}};
    config.logFile = root() / "sites" / "requests.log";
    sites_ = std::make_unique<sites::SitesServer>(config);
    sites_->start();
    serve("microsoft", kProbePagePath, "<html>probe</html>");  // the Internet is there
    writeMachineIni();
    writeAgentIni("PMDownload=http://gateway.corp.lan:8080/pm\r\nWBListDownload=http://gateway.corp.lan:8080/wblist\r\n");
    if (downloadDay) {
        writeFile(std::string(kProgramFolder) + "\\MSUpd.xml", msSchedule());
        writeFile(std::string(kPatchFolder) + "KDowFile.dll", "MZ stand-in");
    }
}

DownloadMachine::~DownloadMachine() { sites_->stop(); }

void DownloadMachine::writeMachineIni(const std::string& extra) {
    setMachineIni(
        "[Machine]\r\n"
        "ExePath=C:\\Program Files\\VORN\\VORNMobile\\BaseComponents\\PatchManagement\\KPMDwld.exe\r\n"
        "ComputerName=demo-pc\r\n"
        "[Processes]\r\n1=System\r\n"
        "[Downloads]\r\nPollWaitMs=20\r\nStallSeconds=2\r\n"
        "[Network]\r\n"
        "gateway.corp.lan=127.0.0.1:" + std::to_string(sites_->port("gateway")) + "\r\n"
        "dc.vornsoft.com=127.0.0.1:" + std::to_string(sites_->port("dc")) + "\r\n"
        "update.vornsoft.com=127.0.0.1:" + std::to_string(sites_->port("updates")) + "\r\n"
        "download.windowsupdate.com=127.0.0.1:" + std::to_string(sites_->port("microsoft")) + "\r\n"
        "www.microsoft.com=127.0.0.1:" + std::to_string(sites_->port("microsoft")) + "\r\n"
        "proxy.corp.lan=127.0.0.1:" + std::to_string(sites_->port("proxy")) + "\r\n" +
        extra);
}

void DownloadMachine::writeMsSchedule(const std::string& upcls, const std::string& gatewayFlag) {
    writeFile(std::string(kProgramFolder) + "\\MSUpd.xml", msSchedule(upcls, gatewayFlag));
}

void DownloadMachine::writeAgentIni(const std::string& downloadSection) {
    writeFile(std::string(kInstallPath) + "VORNMobile.ini",
              "[ProxySettings]\r\nProxyIP=\r\nProxyPort=\r\nIsEncrypt=1\r\n"
              "[DCConnURL]\r\nControllerPSite=http://manage.vornsoft.com\r\nControllerSSite=http://manage2.vornsoft.com\r\n"
              "[VornUpdates]\r\nDownLoadSite=http://dc.vornsoft.com/updates\r\n"
              "[Download]\r\n" + downloadSection);
}

void DownloadMachine::serve(const std::string& site, const std::string& urlPath, const std::string& content) {
    fs::path p = root() / "sites" / site / urlPath.substr(1);
    fs::create_directories(p.parent_path());
    std::ofstream(p, std::ios::binary) << content;
}

void DownloadMachine::serveZip(const std::string& site, const std::string& urlPath,
                               const std::vector<std::pair<std::string, std::string>>& files) {
    fs::path work = root() / "zip-work";
    fs::remove_all(work);
    std::string names;
    for (const auto& [name, content] : files) {
        fs::create_directories((work / name).parent_path());
        std::ofstream(work / name, std::ios::binary) << content;
        names += " '" + name + "'";
    }
    fs::path target = root() / "sites" / site / urlPath.substr(1);
    fs::create_directories(target.parent_path());
    fs::remove(target);
    std::string cmd = "cd '" + work.string() + "' && zip -q -X '" + target.string() + "'" + names;
    if (std::system(cmd.c_str()) != 0) throw std::runtime_error("zip failed: " + cmd);
}

std::vector<std::string> DownloadMachine::requestLines() const {
    std::vector<std::string> out;
    for (const auto& r : sites_->requests())
        out.push_back(r.site + " " + r.method + " " + r.path + " " + std::to_string(r.status) + " " +
                      std::to_string(r.bytes));
    return out;
}

std::vector<std::string> DownloadMachine::entriesOf(const std::string& proc) const {
    std::vector<std::string> out;
    for (const auto& m : logMessages()) {
        size_t first = m.find('|');
        if (m.compare(first + 1, proc.size() + 1, proc + "|") == 0) out.push_back(m.substr(first + 1));
    }
    return out;
}

}  // namespace kpmtest

// A managed computer whose network is the project's local sites: the agent
// gateway on the LAN, the data center, the maker's update host and
// Microsoft's content host, each a folder served on loopback and reached
// through the machine's [Network] map under its real-looking name.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "sites/sites_server.h"
#include "support/test_machine.h"

namespace kpmtest {

// The program's folder as the pass names it (its short form on this machine).
inline constexpr const char* kShortProgramFolder = "C:\\PROGRA~1\\VORN\\VORNMO~1\\BASECO~1\\PATCHM~1";
inline constexpr const char* kPatchFolder = "C:\\Program Files\\VORN\\VORNMobile\\BaseComponents\\PatchManagement\\";
inline constexpr const char* kComponents =
    "C:\\Program Files\\VORN\\VORNMobile\\BaseComponents\\PatchManagement\\Components\\";

inline constexpr const char* kGatewayBlackList = "http://gateway.corp.lan:8080/wblist/PatchBlackList.txt";
inline constexpr const char* kDataCenterZip = "http://dc.vornsoft.com/updates/wblist/wblist.zip";
inline constexpr const char* kUpdateHostDll = "http://update.vornsoft.com/kScc/KDowFile.dll";
// The connectivity probe's page, served by the "microsoft" site (www.microsoft.com).
inline constexpr const char* kProbePagePath = "/en-us/default.aspx";
// The LAN proxy (proxy.corp.lan:3128 in the agent INI) and the credentials it asks for.
inline constexpr const char* kProxyCredentials = "kpm:proxy-pass";

class DownloadMachine : public TestMachine {
public:
    // Sites "gateway", "dc", "updates" and "microsoft" (also www.microsoft.com,
    // with the probe page), and the proxy ("proxy.corp.lan"), started on free ports.
    // With `downloadDay`, MSUpd.xml opens the Microsoft window with downloads
    // enabled at 2026-11-15 16:10, and KDowFile.dll is already in place.
    explicit DownloadMachine(bool downloadDay = true);
    ~DownloadMachine();

    sites::SitesServer& sites() { return *sites_; }
    // Puts a file on a site ("gateway", "/wblist/PatchBlackList.txt").
    void serve(const std::string& site, const std::string& urlPath, const std::string& content);
    // A zip made by the zip tool from name=content pairs, served at urlPath.
    void serveZip(const std::string& site, const std::string& urlPath,
                  const std::vector<std::pair<std::string, std::string>>& files);
    // Requests seen so far as "site method path status bytes" (host and query left out).
    std::vector<std::string> requestLines() const;

    // Rewrites machine.ini: the [Network] map to the sites plus `extra` lines.
    void writeMachineIni(const std::string& extra = "");
    // Rewrites MSUpd.xml: the same window with these upcls elements, and with
    // an AlwaysDwnldGateway element holding gatewayFlag unless it is empty.
    void writeMsSchedule(const std::string& upcls, const std::string& gatewayFlag = "");
    // Rewrites the agent INI's [Download] section.
    void writeAgentIni(const std::string& downloadSection);

    int runPass() { return TestMachine::runPass(at("2026-11-15T16:10:00")); }
    // Entries of one procedure ("proc|type|message|v1|v2|v3"), in order.
    std::vector<std::string> entriesOf(const std::string& proc) const;

private:
    std::unique_ptr<sites::SitesServer> sites_;
};

}  // namespace kpmtest

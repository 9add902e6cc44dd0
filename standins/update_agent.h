// Stand-in for the Windows Update Agent's automation objects, for machines
// whose agent cannot serve a pass (the simulated machine; Wine, whose searcher
// is not implemented). It searches a catalogue file instead of a service and
// downloads nothing: it records what it was asked.
//
// Setting up a test machine
// -------------------------
// Simulated machine: the files live in the machine folder, the settings in
// machine.ini. Windows (Wine): the files live in %KPM_STANDINS_DIR%
// (C:\KPMStandins when the variable is not set), the settings in its
// network.ini. Settings, all optional:
//
//   [WindowsUpdate]
//   AgentVersion=7.6.7601.24436   what AgentInfo.GetInfo("ProductVersionString") answers
//   SearchError=0x8024402C        an online search fails with this number (hex or decimal)
//   Catalog=C:\Tests\catalog.xml  the online catalogue, a Windows path
//                                 (default: update-catalog.xml beside the records)
//
// The online catalogue (no file: no update is missing), and the offline
// catalogue "wsusscn2.cab" that AddScanPackageService registers, are both
//
//   <updates>
//     <update id="2b1c..." revision="201" installed="0" deployed="2026-10-14" title="...">
//       <kb>5031354</kb>
//       <category type="UpdateClassification" name="Security Updates"/>
//       <category type="Product" name="Windows 7"/>
//       <content url="http://download.windowsupdate.com/.../windows6.1-kb5031354-x64.msu"/>
//       <update ...>...</update>     a nested update is one of its bundled updates
//     </update>
//   </updates>
//
// id and deployed (yyyy-mm-dd, or yyyy-mm-ddThh:mm:ss) are required; revision
// defaults to 1, installed to 0, title to empty. A category's type is one of
// the agent's own, spelt as it reports them: UpdateClassification, Product,
// ProductFamily, Company. Bundles nest at most
// kMaxBundleDepth levels. Anything else (an unknown element, a bad value)
// makes the file damaged: the online search fails with WU_E_XML_INVALID, the
// scan package with WU_E_INVALID_FILE (a missing one with 0x80070002).
//
// Records, beside the settings (created on first use):
//   update-services.ini   the service manager's registrations:
//                           [ServiceManager] ClientApplicationID=My App
//                           [Service <id>] Flags=7 AuthorizationCabPath= ClientApplicationID=My App
//                           [Service <id>] Name=Offline Service ScanFile=C:\...\wsusscn2.cab
//                         (every [Service] section is a service of Services,
//                         after the built-in "Windows Update")
//   update-searches.log   one line per search:
//                           Search isinstalled=0; ServerSelection=3; ServiceID=<id>;
//                           Proxy=<address>; UserName=<name>; Password=<text>; Updates=<n>
//                         (Error=0x........ instead of Updates= when it failed)
//   update-downloads.log  one line per update a downloader was given:
//                           Download <UpdateID>.<RevisionNumber> <Title>
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/datetime.h"
#include "standins/dispatch_base.h"
#include "standins/transfer.h"

namespace standins {

inline constexpr const char* kUpdateSessionProgId = "Microsoft.Update.Session";
inline constexpr const char* kUpdateServiceManagerProgId = "Microsoft.Update.ServiceManager";
inline constexpr const char* kUpdateCollProgId = "Microsoft.Update.UpdateColl";
inline constexpr const char* kAgentInfoProgId = "Microsoft.Update.AgentInfo";
// The agent's WebProxy class has no ProgID: it is created by this identifier.
inline constexpr const char* kWebProxyClsid = "{650503CF-9108-4DDC-A2CE-6C2341E1C582}";

// The Microsoft Update service, the one service the program adds, and the
// Windows Update service that every agent has.
inline constexpr const char* kMicrosoftUpdateServiceId = "7971f918-a847-4430-9279-4a52d1efe18d";
inline constexpr const char* kWindowsUpdateServiceId = "9482f4b4-e343-43b6-b170-9a65bc822c77";

inline constexpr const char* kDefaultAgentVersion = "7.6.7601.24436";
inline constexpr int kMaxBundleDepth = 8;

// AddServiceFlag values.
namespace addservice {
constexpr long AllowPendingRegistration = 1;
constexpr long AllowOnlineRegistration = 2;
constexpr long RegisterServiceWithAU = 4;
}  // namespace addservice

// The agent's error numbers the stand-in reports.
namespace wuerr {
constexpr int32_t InvalidArg = static_cast<int32_t>(0x80070057);     // E_INVALIDARG
constexpr int32_t Fail = static_cast<int32_t>(0x80004005);           // E_FAIL
constexpr int32_t FileNotFound = static_cast<int32_t>(0x80070002);   // the scan file is missing
constexpr int32_t InvalidIndex = static_cast<int32_t>(0x80240007);   // WU_E_INVALIDINDEX
constexpr int32_t XmlInvalid = static_cast<int32_t>(0x8024000E);     // WU_E_XML_INVALID
constexpr int32_t NoUpdate = static_cast<int32_t>(0x80240024);       // WU_E_NO_UPDATE
constexpr int32_t InvalidFile = static_cast<int32_t>(0x80240031);    // WU_E_INVALID_FILE
constexpr int32_t InvalidCriteria = static_cast<int32_t>(0x80240032);  // WU_E_INVALID_CRITERIA
constexpr int32_t NotSupported = static_cast<int32_t>(0x80240037);   // WU_E_NOT_SUPPORTED
constexpr int32_t UnknownService = static_cast<int32_t>(0x80248014);  // WU_E_DS_UNKNOWNSERVICE
}  // namespace wuerr

// [WindowsUpdate] of the settings file.
struct UpdateAgentSettings {
    std::string agentVersion = kDefaultAgentVersion;
    int32_t searchError = 0;  // 0: searches succeed
    std::string catalog;      // Windows path; empty: the default file
    std::string error;        // a line that could not be read; every search then fails
};
UpdateAgentSettings parseUpdateAgentSettings(const std::string& iniText, const std::string& fileName);

// Where the agent's objects find their files.
struct UpdateAgentPlace {
    std::filesystem::path recordFolder;  // records and the default online catalogue
    std::filesystem::path settingsFile;  // an INI file with a [WindowsUpdate] section
    std::shared_ptr<StandinHost> files;  // reads files named by Windows paths
    std::function<platform::Object()> newXmlDocument;  // an empty "MSXML2.DOMDocument"
};

// One update of a catalogue, bundled updates included.
struct CatalogUpdate {
    std::string id;
    long revision = 1;
    bool installed = false;
    platform::DateTime deployed;
    std::string title;
    std::vector<std::string> kbs;
    std::vector<std::pair<std::string, std::string>> categories;  // type, name
    std::vector<std::string> contents;                            // download URLs
    std::vector<CatalogUpdate> bundled;
};

// Reads a catalogue's text through `document` (a new DOM document). False,
// with the reason, when the text is not a catalogue.
bool readCatalog(platform::Object document, const std::string& text, std::vector<CatalogUpdate>& out,
                 std::string& reason);

// The objects each machine registers.
std::shared_ptr<platform::Dispatch> newUpdateSession(std::shared_ptr<const UpdateAgentPlace> place);
std::shared_ptr<platform::Dispatch> newUpdateServiceManager(std::shared_ptr<const UpdateAgentPlace> place);
std::shared_ptr<platform::Dispatch> newUpdateCollection();
std::shared_ptr<platform::Dispatch> newWebProxy();
std::shared_ptr<platform::Dispatch> newAgentInfo(std::shared_ptr<const UpdateAgentPlace> place);

// True for the registry form of a GUID without braces: 8-4-4-4-12 hex digits.
bool isGuidText(const std::string& text);

}  // namespace standins

// The Microsoft pipeline's scan: the Windows Update Agent is asked for the
// missing updates, online against Microsoft Update or offline against the
// catalogue "wsusscn2.cab" from the gateway, and the result is handed to the
// selection (patch_selection.h).
#pragma once

#include <string>

namespace kpm {

// The offline catalogue, kept beside the executable.
inline constexpr const char* kOfflineCatalogName = "wsusscn2.cab";
inline constexpr const char* kUpdateSearchCriteria = "isinstalled=0";
// ServerSelection value that searches the service named by ServiceID.
inline constexpr long kSearchOthers = 3;
// The update agent's WebProxy class, created by its class identifier (it has no ProgID).
inline constexpr const char* kWebProxyClsid = "{650503CF-9108-4DDC-A2CE-6C2341E1C582}";

void Scan_Deploy();
// method: "ONLINE" or "OFFLINE". True when the search ran to its end.
bool fncCreateScan(const std::string& method);
bool DownLoad_WsusScanCab();
// name is the catalogue's base name; the file name itself is fixed.
bool DownloadCab(const std::string& name);

}  // namespace kpm

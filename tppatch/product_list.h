// The third-party pipeline: the product list download, then the assessment
// of the selected vendors' products and the download of their installers.
#pragma once

#include <string>

#include "tppatch/file_download.h"

namespace kpm {

inline TPDownloadResult PdListDownloadResult;
inline std::string ProductListPath;
// "Already current" flags of the two XML files: nothing sets them, so both
// are always fetched and copied.
inline bool PDListIsCurrent = false;
inline bool AUOptionsIsCurrent = false;

void ScanTpmUpdates();
void subXMLDownload();
void subAutoDeployment();
// The file name of a URL or path: after the last "\", else the last "/";
// empty when it holds no ".".
std::string GetFileNameFromURL(const std::string& url);
// Deletes a folder with everything in it; every failure is ignored.
void subDeleteFolder(const std::string& folder);

}  // namespace kpm

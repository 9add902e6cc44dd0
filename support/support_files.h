// Black list and component download, and the patch-folder clean-up.
#pragma once

#include <string>

namespace kpm {

bool Download_BlackList(const std::string& fileName);
bool DCDownload();
bool subUnzipFile(const std::string& zipFile, const std::string& folder);
void subReadDownloadList();
void subCleanPatchFolders();

}  // namespace kpm

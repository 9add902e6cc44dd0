// Black list and component download, and the patch-folder clean-up.
#pragma once

#include <string>
#include <unordered_set>
#include <vector>

namespace kpm {

// The lines of "DwldURL.txt" as CloseAll read them.
inline std::vector<std::string> DownloadURLList;
// Every "\"-separated piece of those lines: a file name that is one of them
// is in the list without searching every line for it.
inline std::unordered_set<std::string> DownloadURLPieces;

bool Download_BlackList(const std::string& fileName);
bool DCDownload();
bool Download_BlackList_FromDC();
bool subUnzipFile(const std::string& zipFile, const std::string& folder);
// Unpacks an archive into a folder with the zip component; false with the
// component's reason. Creation and call failures are thrown to the caller.
bool fncUnzipArchive(const std::string& archive, const std::string& folder, std::string& why);
void subDownloadAllFiles();
void subReadDownloadList();
void subCleanPatchFolders();
void subDeletePatch(const std::string& path);

}  // namespace kpm

// Placeholders until the black list and component download are built:
// nothing can be fetched, so both black-list sources report failure.
#include "support/support_files.h"

namespace kpm {

bool Download_BlackList(const std::string&) { return false; }
bool DCDownload() { return false; }
bool subUnzipFile(const std::string&, const std::string&) { return false; }
void subReadDownloadList() {}
void subCleanPatchFolders() {}

}  // namespace kpm

// The installer download: for each product that needs its update, the
// vendor's installer into "Components\Appcomp", verified before it takes its
// name (docs/third-party.md, "The installer download").
#pragma once

#include <string>
#include <vector>

#include "tppatch/assessment.h"
#include "tppatch/catalogue.h"

namespace kpm {

struct InstallerOutcome {
    size_t product = 0;  // index in Catalogue::products
    enum class Result { Downloaded, Present, NotDownloaded };
    Result result = Result::NotDownloaded;
    std::string path;     // where the verified installer is
    std::string channel;  // "gateway" or "vendor" for a download of this pass
    std::string why;      // why there is no verified installer
};

// "...\BaseComponents\PatchManagement\Components\Appcomp".
std::string InstallerFolder();

// Downloads the installers of the findings that need their update, in order.
std::vector<InstallerOutcome> DownloadInstallers(const Catalogue& catalogue, const std::vector<ProductFinding>& findings);

// Lists in "DwldURL.txt", so that the clean-up at the end of the pass keeps
// them, the installers that "TPUpdates.xml" records as verified (downloaded
// or present) and that still match their record, and the record itself (used
// when no product list is accepted or read: what an earlier accepted list
// verified is not thrown away, and nothing else is kept).
void KeepInstallersAlreadyThere();

}  // namespace kpm

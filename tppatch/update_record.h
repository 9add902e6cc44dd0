// The record the deployment step reads: "Components\Appcomp\TPUpdates.xml",
// which updates were needed, the verified file of each, and the products
// whose version could not be read (docs/third-party.md, "The record").
#pragma once

#include <vector>

#include "tppatch/assessment.h"
#include "tppatch/catalogue.h"
#include "tppatch/installer_download.h"

namespace kpm {

// Writes the record whole (a temporary file put in place) and lists it in
// "DwldURL.txt", so that the clean-up at the end of the pass keeps it.
void WriteUpdateRecord(const Catalogue& catalogue, const std::vector<ProductFinding>& findings,
                       const std::vector<InstallerOutcome>& outcomes);

}  // namespace kpm

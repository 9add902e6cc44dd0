// Which of the scan's missing updates this machine downloads: the classes and
// products of "MSUpd.xml", the partner's black list and the black-list file.
// Each selected update is downloaded at once (patch_content.h).
#pragma once

#include <cstdint>
#include <string>

namespace kpm {

// Always false; callers ignore it.
bool FncDeployPatch();
// "month/day/year" as yyyymmdd; 99999999 when the text is not three parts.
// Error 13 (or 6) when the parts make no number.
int32_t fncDateToNumber(const std::string& text);

}  // namespace kpm

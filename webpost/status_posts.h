// The XML status posts to the management site.
#pragma once

#include <cstdint>

namespace kpm {

int16_t fncWebPostKB();  // True (-1) when a site answered
void FncWebPostDownloadStatus();

}  // namespace kpm

// The third-party pipeline.
#pragma once

namespace kpm {

void ScanTpmUpdates();

}  // namespace kpm

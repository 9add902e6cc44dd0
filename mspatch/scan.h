// The Microsoft pipeline: scan, selection and download.
#pragma once

namespace kpm {

void Scan_Deploy();

}  // namespace kpm

// Placeholder until the Microsoft scan is built.
#include "mspatch/scan.h"

namespace kpm {

void Scan_Deploy() {}

}  // namespace kpm

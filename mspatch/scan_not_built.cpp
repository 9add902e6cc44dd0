// Placeholder until the Microsoft pipeline is built.
#include "mspatch/scan.h"

namespace kpm {

void Scan_Deploy() {}

}  // namespace kpm

// Placeholder until the third-party pipeline is built.
#include "thirdparty/product_list.h"

namespace kpm {

void ScanTpmUpdates() {}

}  // namespace kpm

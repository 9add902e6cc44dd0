// Placeholders until the status posts are built: nothing is posted.
#include "webpost/status_posts.h"

namespace kpm {

int16_t fncWebPostKB() { return 0; }
void FncWebPostDownloadStatus() {}

}  // namespace kpm

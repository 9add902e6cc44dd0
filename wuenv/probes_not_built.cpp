// Placeholders until the environment probes are built: nothing is checked.
#include "wuenv/probes.h"

namespace kpm {

void RegisteDLL() {}
void Chk_Set_Prerequisites() {}

}  // namespace kpm

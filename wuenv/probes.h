// Environment probes run before the Microsoft scan.
#pragma once

namespace kpm {

void RegisteDLL();
void Chk_Set_Prerequisites();

}  // namespace kpm

// The black lists an update is checked against: the partner's KB numbers and
// the file "Temp\PatchBlackList.txt" (OS, service pack and KB entries, and
// the date of the list).
#pragma once

namespace kpm {

// Reads the black-list file into the pipeline state; false when it could not
// be read. The scope "AL" reads nothing.
bool ReadBlackLis();
// The update at CurrentUpdateIndex: true when it may be downloaded.
bool ChkBlackList();

}  // namespace kpm

// Placeholders until the schedule is built: no download window is ever open.
#include "schedule/schedule_settings.h"

namespace kpm {

void subReadXMLForSchedule() {}
void subReadTPMXMLForSchedule() {}
bool fncCheckTime() { return false; }
bool fncCheckTimeTP() { return false; }

}  // namespace kpm

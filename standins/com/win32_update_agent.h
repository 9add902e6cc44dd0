// Where the update agent stand-in lives on a Windows machine: its records and
// default catalogue in the stand-ins' folder (%KPM_STANDINS_DIR%, else
// C:\KPMStandins), its settings in that folder's network.ini [WindowsUpdate],
// catalogues read through the system's MSXML.
#pragma once

#include <memory>

#include "standins/update_agent.h"

namespace standins::win32 {

std::shared_ptr<const UpdateAgentPlace> updateAgentPlace();

}  // namespace standins::win32

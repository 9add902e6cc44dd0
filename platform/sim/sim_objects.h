// Stand-ins that belong to the simulated machine itself (they read its
// facts or its files); sim_classes.cpp puts them in the class table.
#pragma once

#include <string>
#include <vector>

#include "platform/automation.h"

namespace platform::sim {

struct MachineConfig;
class SimFiles;

// "winmgmts:": InstancesOf and ExecQuery over Win32_Process (the running
// processes) and Win32_OperatingSystem (machine.ini [OS]).
Object makeWmiService(const MachineConfig& config, std::vector<std::string> processes);

// "Scripting.FileSystemObject" on the simulated files.
Object makeFileSystemObject(SimFiles& files);

// WMI's errors for a class it does not know and a query it cannot read.
constexpr int32_t kWbemInvalidClass = static_cast<int32_t>(0x80041010);
constexpr int32_t kWbemInvalidQuery = static_cast<int32_t>(0x80041017);

}  // namespace platform::sim

// What every part of the simulated machine shares: its folder, machine.ini,
// and the thread's last system error.
#pragma once

#include <cstdint>
#include <filesystem>

#include "platform/sim/sim_code_page.h"
#include "platform/sim/sim_config.h"

namespace platform::sim {

// Win32 error codes the simulated calls set.
namespace win32 {
constexpr uint32_t FileNotFound = 2;
constexpr uint32_t PathNotFound = 3;
constexpr uint32_t AccessDenied = 5;
constexpr uint32_t DiskFull = 112;
constexpr uint32_t BufferOverflow = 111;
constexpr uint32_t InvalidName = 123;
constexpr uint32_t AlreadyExists = 183;
constexpr uint32_t WriteFault = 29;
}  // namespace win32

struct MachineState {
    std::filesystem::path folder;
    MachineConfig config;
    CodePage codePage;  // config.codePage's tables
    uint32_t lastError = 0;
};

}  // namespace platform::sim

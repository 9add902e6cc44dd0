// machine.ini: any text is a machine's facts or a one-line MachineError.
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "fuzz_machine.h"
#include "platform/sim/sim_config.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const std::filesystem::path file =
        std::filesystem::temp_directory_path() / ("kpm-fuzz-machine-" + std::to_string(::getpid()) + ".ini");
    std::ofstream(file, std::ios::binary | std::ios::trunc) << kpmfuzz::text(data, size);
    try {
        platform::sim::loadMachineConfig(file);
    } catch (const std::runtime_error&) {
    }
    return 0;
}

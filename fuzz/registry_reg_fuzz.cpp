// registry.reg: any text is a registry or a one-line MachineError.
#include <stdexcept>

#include "fuzz_machine.h"
#include "platform/sim/sim_registry.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    try {
        platform::sim::RegDocument::parse(kpmfuzz::text(data, size));
    } catch (const std::runtime_error&) {
    }
    return 0;
}

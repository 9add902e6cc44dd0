// "wpConfig.xml": any plain text, encrypted as the agent stores it, is
// decrypted and read for both document kinds.
#include "fuzz_machine.h"
#include "webpost/site_config.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    kpmtest::TestMachine& m = kpmfuzz::openMachine();
    m.writeWebPostConfig(kpmfuzz::text(data, size));
    kpmfuzz::step([] { kpm::subReadXMLWebpost("wppthdwldinfo"); });
    kpmfuzz::step([] { kpm::subReadXMLWebpost("wppthmsbbllist"); });
    return 0;
}

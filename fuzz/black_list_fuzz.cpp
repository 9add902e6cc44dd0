// "PatchBlackList.txt": any content gives entries and a date, or the
// reader's logged error; then one update is checked against it.
#include "config/agent_settings.h"
#include "fuzz_machine.h"
#include "mspatch/black_list.h"
#include "schedule/schedule_settings.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    kpmtest::TestMachine& m = kpmfuzz::openMachine();
    m.writeFile(std::string(kpmtest::kProgramFolder) + "\\Temp\\PatchBlackList.txt", kpmfuzz::text(data, size));
    kpm::scheduleSettings.UpclsScope = "BL";
    kpmfuzz::step([] { kpm::ReadBlackLis(); });
    return 0;
}

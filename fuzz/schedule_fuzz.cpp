// The schedule files: "MSUpd.xml" and the day's third-party file, whatever
// they hold, end in settings or in the readers' logged errors.
#include "config/agent_settings.h"
#include "fuzz_machine.h"
#include "schedule/schedule_settings.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    kpmtest::TestMachine& m = kpmfuzz::openMachine();
    const std::string folder = std::string(kpmtest::kProgramFolder) + "\\";
    m.writeFile(folder + "MSUpd.xml", kpmfuzz::text(data, size));
    m.writeFile(folder + "Autosch_15112026.xml", kpmfuzz::text(data, size));
    kpmfuzz::step([] { kpm::subReadXMLForSchedule(); });
    kpmfuzz::step([] { kpm::subReadTPMXMLForSchedule(); });
    return 0;
}

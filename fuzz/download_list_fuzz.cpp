// "DwldURL.txt" decides which patch files the clean-up keeps: any content is
// read, and only files of the patch folders are ever deleted.
#include "driver/run_state.h"
#include "fuzz_machine.h"
#include "support/support_files.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    kpmtest::TestMachine& m = kpmfuzz::openMachine();
    const std::string folder = std::string(kpmtest::kProgramFolder) + "\\";
    m.writeFile(folder + "DwldURL.txt", kpmfuzz::text(data, size));
    m.writeFile(folder + "Components\\windows6.1-kb1.msu", "x");
    m.writeFile(folder + "Keep.txt", "keep");
    kpm::runState.MSPassRan = true;
    kpm::subReadDownloadList();
    kpm::subCleanPatchFolders();
    if (!m.exists(folder + "Keep.txt")) __builtin_trap();  // outside the patch folders
    return 0;
}

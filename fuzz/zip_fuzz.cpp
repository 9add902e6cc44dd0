// The zip stand-in's readers (both backends): any file opens or is refused,
// every entry extracts or fails with a reason, and no entry name that could
// leave its folder passes the name check.
#include <unistd.h>

#include <filesystem>
#include <algorithm>
#include <fstream>

#include "fuzz_machine.h"
#include "standins/zip_archive.h"

namespace {

// A name Windows could read as leaving the folder: a root, a drive or stream,
// a backslash, or a component that is only dots and blanks ("..", ".. ").
bool climbsOut(const std::string& name) {
    if (name.empty() || name[0] == '/' || name.find_first_of("\\:") != std::string::npos) return true;
    size_t start = 0;
    while (start <= name.size()) {
        size_t end = std::min(name.find('/', start), name.size());
        const std::string part = name.substr(start, end - start);
        if (part.find("..") != std::string::npos && part.find_first_not_of(". ") == std::string::npos) return true;
        start = end + 1;
    }
    return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const std::filesystem::path file =
        std::filesystem::temp_directory_path() / ("kpm-fuzz-zip-" + std::to_string(::getpid()) + ".zip");
    std::ofstream(file, std::ios::binary | std::ios::trunc) << kpmfuzz::text(data, size);
    for (auto open : {standins::openZipZlib, standins::openZipMinizip}) {
        std::string error;
        auto zip = open(file.string(), error);
        if (!zip) continue;
        for (size_t i = 0; i < zip->entries().size(); ++i) {
            const std::string& name = zip->entries()[i].name;
            if (standins::isSafeEntryName(name) && climbsOut(name)) __builtin_trap();
            uint64_t total = 0;
            zip->extract(i, [&](const char*, size_t n) { total += n; return total < (64u << 20); }, error);
        }
    }
    return 0;
}

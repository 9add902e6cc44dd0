// KGnMD5.dll, the stand-in for the maker's checksum library on Windows (Wine)
// test machines: the exports of platform/maker_exports.h over the stand-ins'
// MD5 (CryptoAPI underneath).
#include <windows.h>

#include <cstring>
#include <string>

#include "platform/maker_exports.h"
#include "standins/md5.h"

extern "C" long KPM_MAKER_CALL KGetMD5(const char* path, char* md5);  // KGnMD5.def
extern "C" long KPM_MAKER_CALL KGetMD5WBlock(const char* path, char* md5, long blockSize);

namespace {

namespace exports = platform::maker_exports;
[[maybe_unused]] constexpr exports::KGetMD5Fn kWhole = &KGetMD5;
[[maybe_unused]] constexpr exports::KGetMD5WBlockFn kBlocks = &KGetMD5WBlock;

long md5Into(const char* path, char* md5, size_t blockSize) {
    if (!md5) return 0;
    md5[0] = '\0';
    if (!path) return 0;
    // A folder opens for reading with the C library on some systems: not a file.
    const DWORD a = GetFileAttributesA(path);
    if (a == INVALID_FILE_ATTRIBUTES || (a & FILE_ATTRIBUTE_DIRECTORY)) return 0;
    try {
        std::string hex, error;
        if (!standins::md5File(path, blockSize, hex, error) || hex.size() != 32) return 0;
        std::memcpy(md5, hex.c_str(), 33);
        return 1;
    } catch (...) {
        return 0;
    }
}

}  // namespace

extern "C" long KPM_MAKER_CALL KGetMD5(const char* path, char* md5) { return md5Into(path, md5, 0); }

extern "C" long KPM_MAKER_CALL KGetMD5WBlock(const char* path, char* md5, long blockSize) {
    return md5Into(path, md5, static_cast<size_t>(blockSize > 0 ? blockSize : exports::kDefaultMd5Block));
}

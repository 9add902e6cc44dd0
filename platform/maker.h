// The maker's closed DLLs that the program calls by their exports (not COM).
// On Windows they are loaded from the program's folder; the simulated machine
// and the Wine prefix use stand-ins with the same contracts. The exports'
// C signatures are in platform/maker_exports.h.
#pragma once

#include <cstdint>
#include <string>

namespace platform {

// What GetDownloadFinalStatus of KDowFile.dll reports for a started download.
namespace kdowfile {
constexpr int32_t Running = 0;     // still transferring (or about to)
constexpr int32_t Completed = 1;   // the whole file is in place under its name
constexpr int32_t Failed = 2;      // it ended without a file; nothing was left behind
constexpr int32_t UnknownJob = -1; // no download by that number
}  // namespace kdowfile

class MakerLibraries {
public:
    virtual ~MakerLibraries() = default;
    // KEncDec's EncryptData / DecryptData: transform the first `length` bytes
    // of an ANSI buffer in place (the result has the same length) and return
    // the library's own result, which the program ignores. Throws ComError 53
    // ("File not found: KEncDec") when the library cannot be loaded and 453
    // when the entry point is missing.
    virtual int32_t encryptData(std::string& buffer, int32_t length) = 0;
    virtual int32_t decryptData(std::string& buffer, int32_t length) = 0;

    // KDowFile.dll's AsyncDownloadFile: starts fetching `url` into the file
    // `destination` in the background and returns at once with the download's
    // number (above 0), or 0 when it could not be started. Throws ComError 53
    // ("File not found: KDowFile.dll") when the library is not in the
    // program's folder, 453 when the entry point is missing.
    virtual int32_t asyncDownloadFile(const std::string& url, const std::string& destination) = 0;
    // KDowFile.dll's GetDownloadFinalStatus: one of kdowfile::*, and the body
    // bytes received so far (a caller sees progress by their growth).
    virtual int32_t getDownloadFinalStatus(int32_t job, int64_t& bytesReceived) = 0;

    // KGnMD5.dll's KGetMD5 (whole file) and KGetMD5WBlock (block-wise): the
    // MD5 of a file as 32 lower-case hex digits; false when the file cannot
    // be read. Both give the same text. Load failures throw as above
    // ("File not found: KGnMD5.dll").
    virtual bool kGetMD5(const std::string& path, std::string& md5) = 0;
    virtual bool kGetMD5WBlock(const std::string& path, std::string& md5) = 0;
};

}  // namespace platform

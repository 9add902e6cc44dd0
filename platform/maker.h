// The maker's closed DLLs that the program calls by their exports (not COM).
// On Windows they are loaded from the agent's folders; the simulated machine
// and the Wine prefix use stand-ins with the same contracts.
#pragma once

#include <cstdint>
#include <string>

namespace platform {

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
};

}  // namespace platform

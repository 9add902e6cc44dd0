// KEncDec.dll, the stand-in for the maker's cipher library on Windows (Wine)
// test machines: the exports of platform/win32/kencdec.h over the stand-ins'
// cipher, so that encrypted settings written for the simulated machine read
// the same here.
#include <windows.h>

#include <string>

#include "platform/win32/kencdec.h"
#include "standins/cipher.h"

extern "C" long __stdcall EncryptData(char* buffer, long length);  // exported by KEncDec.def
extern "C" long __stdcall DecryptData(char* buffer, long length);

namespace {

// Checked against the declared entry type, so the two cannot drift apart.
[[maybe_unused]] constexpr platform::win32::CipherEntry kEncrypt = &EncryptData;
[[maybe_unused]] constexpr platform::win32::CipherEntry kDecrypt = &DecryptData;

long transform(char* buffer, long length, void (*cipher)(std::string&, size_t)) {
    if (!buffer || length <= 0) return 0;
    std::string text(buffer, static_cast<size_t>(length));
    cipher(text, text.size());
    text.copy(buffer, text.size());
    return length;
}

}  // namespace

extern "C" long __stdcall EncryptData(char* buffer, long length) {
    return transform(buffer, length, standins::cipherEncrypt);
}

extern "C" long __stdcall DecryptData(char* buffer, long length) {
    return transform(buffer, length, standins::cipherDecrypt);
}

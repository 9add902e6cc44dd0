#include "standins/cipher.h"

#include <algorithm>

namespace standins {

namespace {

constexpr char kKey[] = "VORNOD-KEncDec";
constexpr int kFirst = 0x20, kCount = 0x7F - 0x20;  // the 95 printable characters

void transform(std::string& buffer, size_t length, int direction) {
    length = std::min(length, buffer.size());
    const size_t keyLen = sizeof kKey - 1;
    for (size_t i = 0; i < length; ++i) {
        int c = static_cast<unsigned char>(buffer[i]);
        if (c < kFirst || c >= kFirst + kCount) continue;
        int shift = (static_cast<unsigned char>(kKey[i % keyLen]) + static_cast<int>(i)) % kCount;
        int v = ((c - kFirst) + direction * shift) % kCount;
        if (v < 0) v += kCount;
        buffer[i] = static_cast<char>(kFirst + v);
    }
}

}  // namespace

void cipherEncrypt(std::string& buffer, size_t length) { transform(buffer, length, +1); }
void cipherDecrypt(std::string& buffer, size_t length) { transform(buffer, length, -1); }

}  // namespace standins

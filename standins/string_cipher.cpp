#include "standins/string_cipher.h"

#include "standins/base64.h"
#include "standins/cipher.h"

namespace standins {

std::string encryptString(std::string_view text) {
    std::string bytes(text);
    cipherEncrypt(bytes, bytes.size());
    return toBase64(bytes);
}

std::optional<std::string> decryptString(std::string_view encrypted) {
    auto bytes = fromBase64(encrypted);
    if (!bytes) return std::nullopt;
    cipherDecrypt(*bytes, bytes->size());
    return bytes;
}

std::optional<std::string> decryptPostedDocument(std::string_view body) {
    constexpr std::string_view open = "<![CDATA[", close = "]]>";
    const size_t start = body.find(open);
    if (start == std::string_view::npos) return decryptString(body);
    const size_t from = start + open.size();
    const size_t end = body.find(close, from);
    if (end == std::string_view::npos) return std::nullopt;
    return decryptString(body.substr(from, end - from));
}

}  // namespace standins

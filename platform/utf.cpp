#include "platform/utf.h"

namespace platform {

namespace {

bool isHigh(char32_t u) { return u >= 0xD800 && u <= 0xDBFF; }
bool isLow(char32_t u) { return u >= 0xDC00 && u <= 0xDFFF; }

void append(std::string& out, char32_t c) {
    if (c < 0x80) {
        out += static_cast<char>(c);
    } else if (c < 0x800) {
        out += static_cast<char>(0xC0 | (c >> 6));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += static_cast<char>(0xE0 | (c >> 12));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (c >> 18));
        out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    }
}

}  // namespace

std::string utf8FromUtf16(std::u16string_view text) {
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        char32_t c = text[i];
        if (isHigh(c) && i + 1 < text.size() && isLow(text[i + 1]))
            c = 0x10000 + ((c - 0xD800) << 10) + (text[++i] - 0xDC00);
        else if (isHigh(c) || isLow(c))
            c = 0xFFFD;
        append(out, c);
    }
    return out;
}

namespace {

// Each character of well-formed UTF-8 to `put`; false at the first flaw.
template <class Put>
bool decodeUtf8(std::string_view text, Put put) {
    for (size_t i = 0; i < text.size();) {
        const unsigned char b = static_cast<unsigned char>(text[i]);
        size_t more = 0;
        char32_t c = 0, least = 0;
        if (b < 0x80) c = b;
        else if ((b & 0xE0) == 0xC0) more = 1, c = b & 0x1F, least = 0x80;
        else if ((b & 0xF0) == 0xE0) more = 2, c = b & 0x0F, least = 0x800;
        else if ((b & 0xF8) == 0xF0) more = 3, c = b & 0x07, least = 0x10000;
        else return false;
        if (i + more >= text.size() && more) return false;
        for (size_t k = 1; k <= more; ++k) {
            const unsigned char t = static_cast<unsigned char>(text[i + k]);
            if ((t & 0xC0) != 0x80) return false;
            c = (c << 6) | (t & 0x3F);
        }
        if (c < least || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) return false;
        put(c);
        i += more + 1;
    }
    return true;
}

}  // namespace

bool utf16FromUtf8(std::string_view text, std::u16string& out) {
    out.clear();
    out.reserve(text.size());
    return decodeUtf8(text, [&out](char32_t c) {
        if (c >= 0x10000) {
            out += static_cast<char16_t>(0xD800 + ((c - 0x10000) >> 10));
            out += static_cast<char16_t>(0xDC00 + ((c - 0x10000) & 0x3FF));
        } else {
            out += static_cast<char16_t>(c);
        }
    });
}

bool isAscii(std::string_view text) {
    for (char c : text)
        if (static_cast<unsigned char>(c) >= 0x80) return false;
    return true;
}

bool isUtf8(std::string_view text) {
    return decodeUtf8(text, [](char32_t) {});
}

}  // namespace platform

// UTF-8 and UTF-16, the two encodings of Unicode the program meets besides its
// own ANSI text: XML files are written in UTF-8, Windows speaks UTF-16.
#pragma once

#include <string>
#include <string_view>

namespace platform {

// A lone surrogate is written as U+FFFD: nothing that reads the file trips on it.
std::string utf8FromUtf16(std::u16string_view text);
// False (and `out` unspecified) when the bytes are not well-formed UTF-8:
// overlong forms, surrogates and code points past U+10FFFF included.
bool utf16FromUtf8(std::string_view text, std::u16string& out);
// The same test, nothing converted.
bool isUtf8(std::string_view text);
// Bytes below 0x80 only: the same text in UTF-8 and in every ANSI code page,
// which most names and values are, so no conversion is needed.
bool isAscii(std::string_view text);

}  // namespace platform

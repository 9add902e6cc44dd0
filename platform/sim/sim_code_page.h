// The simulated computer's ANSI code page ([Locale] CodePage in machine.ini,
// 1252 unless it says otherwise). The program's text is in it, as on Windows;
// the machine folder's own files (registry.reg, the file names under drives/)
// are UTF-8, so that a scenario reads as it is written.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>

namespace platform::sim {

class CodePage {
public:
    // Windows-1252, what a Western European or American computer has.
    CodePage();
    // A single-byte Windows code page that the C library can convert (1250 to
    // 1258, 874, 437, 850, ...). MachineError for any other: double-byte code
    // pages (932, 936, 949, 950) are not simulated.
    explicit CodePage(uint32_t number);
    // The tables of a code page, made once per process (XML files declare theirs).
    static const CodePage& cached(uint32_t number);

    uint32_t number() const { return number_; }
    std::u16string toUtf16(std::string_view ansi) const;
    // A character the code page lacks becomes '?'; a surrogate pair is one character.
    std::string toAnsi(std::u16string_view text) const;
    std::string toUtf8(std::string_view ansi) const;
    // Bytes that are not UTF-8 are taken as the code page's own: a file
    // written in ANSI still reads.
    std::string fromUtf8(std::string_view utf8) const;

    // Unicode's simple upper case, one unit for one (what Windows' tables hold).
    static std::u16string upcase(std::u16string_view text);
    // The same on UTF-8 text (file names in the machine folder).
    static std::string upcaseUtf8(std::string_view text);

private:
    uint32_t number_ = 1252;
    std::array<char16_t, 256> decode_{};
    std::unordered_map<char16_t, char> encode_;
};

}  // namespace platform::sim

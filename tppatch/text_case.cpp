#include "tppatch/text_case.h"

#include <algorithm>

#include "platform/host.h"
#include "platform/utf.h"

namespace kpm {

namespace {

// ASCII reads the same in every ANSI code page and most names are ASCII:
// they need no call to the system. Without a machine (tests of the rules
// alone), bytes stand for characters.
std::u16string asciiWide(std::string_view s) {
    std::u16string out(s.size(), u'\0');
    std::transform(s.begin(), s.end(), out.begin(), [](char c) { return static_cast<char16_t>(static_cast<unsigned char>(c)); });
    return out;
}

}  // namespace

std::u16string WideText(std::string_view ansi) {
    if (platform::isAscii(ansi) || !platform::hasHost()) return asciiWide(ansi);
    return platform::sys().toUtf16(ansi);
}

std::u16string Folded(std::u16string_view wide) {
    const bool ascii = std::all_of(wide.begin(), wide.end(), [](char16_t u) { return u < 0x80; });
    if (!ascii && platform::hasHost()) return platform::sys().upcase(wide);
    std::u16string out(wide);
    for (char16_t& u : out)
        if (u >= u'a' && u <= u'z') u = static_cast<char16_t>(u - u'a' + u'A');
    return out;
}

std::string Utf8Text(std::string_view ansi) {
    if (platform::isAscii(ansi)) return std::string(ansi);
    return platform::utf8FromUtf16(WideText(ansi));
}

}  // namespace kpm

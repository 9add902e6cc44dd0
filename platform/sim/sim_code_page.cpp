#include "platform/sim/sim_code_page.h"

#include <errno.h>
#include <iconv.h>
#include <locale.h>
#include <wctype.h>

#include <map>
#include <memory>
#include <mutex>

#include "platform/sim/sim_machine.h"
#include "platform/utf.h"

namespace platform::sim {

namespace {

enum class ByteIs { Character, Undefined, Lead };

// One byte through iconv: a character, a byte the code page leaves undefined,
// or the first of two (a double-byte code page).
ByteIs decodeByte(iconv_t cd, unsigned char byte, char16_t& out) {
    char in = static_cast<char>(byte);
    char16_t units[2] = {0, 0};
    char* ip = &in;
    char* op = reinterpret_cast<char*>(units);
    size_t il = 1, ol = sizeof units;
    iconv(cd, nullptr, nullptr, nullptr, nullptr);
    if (iconv(cd, &ip, &il, &op, &ol) == static_cast<size_t>(-1)) return errno == EINVAL ? ByteIs::Lead : ByteIs::Undefined;
    // 1255 and 1258 hold a letter back in case an accent follows: flushed here.
    iconv(cd, nullptr, nullptr, &op, &ol);
    if (ol != sizeof units - 2) return ByteIs::Undefined;
    out = units[0];
    return ByteIs::Character;
}

// Null where the C library has no C.UTF-8 (then only ASCII is upper-cased).
locale_t unicodeLocale() {
    static const locale_t l = newlocale(LC_CTYPE_MASK, "C.UTF-8", static_cast<locale_t>(nullptr));
    return l;
}

bool isSurrogate(char16_t u) { return u >= 0xD800 && u <= 0xDFFF; }

}  // namespace

CodePage::CodePage() : CodePage(1252) {}

CodePage::CodePage(uint32_t number) : number_(number) {
    const std::string name = "CP" + std::to_string(number);
    iconv_t cd = iconv_open("UTF-16LE", name.c_str());
    if (cd == reinterpret_cast<iconv_t>(-1))
        throw MachineError("code page " + std::to_string(number) + " is not known to this computer's C library");
    for (unsigned b = 0; b < 256; ++b) {
        char16_t u = static_cast<char16_t>(b);
        // Undefined bytes read as the character of the same number, as
        // MultiByteToWideChar reads 0x81 of 1252.
        if (decodeByte(cd, static_cast<unsigned char>(b), u) == ByteIs::Lead) {
            iconv_close(cd);
            throw MachineError("code page " + std::to_string(number) +
                               " has characters of two bytes; the simulated machine has single-byte code pages only");
        }
        decode_[b] = u;
    }
    iconv_close(cd);
    for (unsigned b = 256; b-- > 0;) encode_[decode_[b]] = static_cast<char>(b);
}

const CodePage& CodePage::cached(uint32_t number) {
    static std::mutex lock;
    static std::map<uint32_t, std::unique_ptr<const CodePage>> made;
    const std::lock_guard<std::mutex> hold(lock);
    auto& slot = made[number];
    if (!slot) slot = std::make_unique<const CodePage>(number);
    return *slot;
}

std::u16string CodePage::toUtf16(std::string_view ansi) const {
    std::u16string out;
    out.reserve(ansi.size());
    for (char c : ansi) out += decode_[static_cast<unsigned char>(c)];
    return out;
}

std::string CodePage::toAnsi(std::u16string_view text) const {
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        const char16_t u = text[i];
        if (u >= 0xD800 && u <= 0xDBFF && i + 1 < text.size() && text[i + 1] >= 0xDC00 && text[i + 1] <= 0xDFFF) ++i;
        const auto it = encode_.find(u);
        out += it == encode_.end() || isSurrogate(u) ? '?' : it->second;
    }
    return out;
}

// Nearly every text is ASCII, the same in UTF-8 and every code page: the
// registry scan of a pass converts thousands of them.
std::string CodePage::toUtf8(std::string_view ansi) const {
    if (isAscii(ansi)) return std::string(ansi);
    return utf8FromUtf16(toUtf16(ansi));
}

std::string CodePage::fromUtf8(std::string_view utf8) const {
    if (isAscii(utf8)) return std::string(utf8);
    std::u16string wide;
    return utf16FromUtf8(utf8, wide) ? toAnsi(wide) : std::string(utf8);
}

std::u16string CodePage::upcase(std::u16string_view text) {
    std::u16string out(text);
    for (char16_t& u : out)
        if (u >= 0x80 && !isSurrogate(u) && unicodeLocale()) {
            const wint_t up = towupper_l(u, unicodeLocale());
            if (up <= 0xFFFF) u = static_cast<char16_t>(up);
        } else if (u >= 'a' && u <= 'z') {
            u = static_cast<char16_t>(u - 'a' + 'A');
        }
    return out;
}

std::string CodePage::upcaseUtf8(std::string_view text) {
    std::u16string wide;
    if (isAscii(text) || !utf16FromUtf8(text, wide)) {
        std::string out(text);
        for (char& c : out)
            if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
        return out;
    }
    return utf8FromUtf16(upcase(wide));
}

}  // namespace platform::sim

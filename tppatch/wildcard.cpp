#include "tppatch/wildcard.h"

#include <algorithm>

#include "platform/utf.h"
#include "tppatch/text_case.h"
#include "tppatch/version.h"

namespace kpm {

namespace {

constexpr size_t npos = std::u16string_view::npos;

// Units of the character at `at`: a surrogate pair is one character, as "?" sees it.
size_t unitsAt(std::u16string_view s, size_t at) {
    const bool pair = at + 1 < s.size() && s[at] >= 0xD800 && s[at] <= 0xDBFF && s[at + 1] >= 0xDC00 && s[at + 1] <= 0xDFFF;
    return pair ? 2 : 1;
}
size_t unitsAt(std::string_view, size_t) { return 1; }

char asciiUpper(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }

// Greedy with one back-track point: the last "*" seen. `same` compares one
// unit of the pattern with one of the text.
template <class View, class Same>
bool matchWith(View pattern, View text, Same same) {
    size_t p = 0, t = 0, star = npos, mark = 0;
    while (t < text.size()) {
        if (p < pattern.size() && pattern[p] == '*') {
            star = p++;
            mark = t;
        } else if (p < pattern.size() && pattern[p] == '?') {
            ++p;
            t += unitsAt(text, t);
        } else if (p < pattern.size() && same(pattern[p], text[t])) {
            ++p;
            ++t;
        } else if (star != npos) {
            p = star + 1;
            mark += unitsAt(text, mark);
            t = mark;
        } else {
            return false;
        }
    }
    while (p < pattern.size() && pattern[p] == '*') ++p;
    return p == pattern.size();
}

// Both texts folded (FoldedText), so that equal units are equal characters.
bool matchFolded(std::u16string_view pattern, std::u16string_view text) {
    return matchWith(pattern, text, [](char16_t a, char16_t b) { return a == b; });
}

bool isAsciiDigit(char16_t u) { return u >= u'0' && u <= u'9'; }

// Longer values are no product's name or version: they never match a pattern
// with a placeholder, which keeps the search below a few thousand tries.
constexpr size_t kLongestExtracted = 256;

}  // namespace

bool WildcardMatch(std::string_view pattern, std::string_view text) {
    // Most names are ASCII: compared as they are, nothing converted.
    if (platform::isAscii(pattern) && platform::isAscii(text))
        return matchWith(pattern, text, [](char a, char b) { return asciiUpper(a) == asciiUpper(b); });
    return matchFolded(FoldedText(pattern), FoldedText(text));
}

bool WildcardEquals(std::string_view a, std::string_view b) {
    if (platform::isAscii(a) && platform::isAscii(b))
        return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) { return asciiUpper(x) == asciiUpper(y); });
    return FoldedText(a) == FoldedText(b);
}

bool ExtractVersion(std::string_view pattern, std::string_view text, std::string& version) {
    const size_t at = pattern.find("{version}");
    if (at == std::string_view::npos || text.size() > kLongestExtracted) return false;
    const std::u16string before = FoldedText(pattern.substr(0, at)), after = FoldedText(pattern.substr(at + 9));
    const std::u16string wide = WideText(text), folded = Folded(wide);
    const std::u16string_view f(folded);
    for (size_t start = 0; start < f.size(); ++start) {
        if (!isAsciiDigit(f[start]) && f[start] != u'V') continue;
        if (!matchFolded(before, f.substr(0, start))) continue;
        for (size_t end = f.size(); end > start; --end) {
            if (!matchFolded(after, f.substr(end))) continue;
            // A version is ASCII: its characters are the text's own, unfolded.
            std::string candidate;
            for (size_t i = start; i < end && wide[i] < 0x80; ++i) candidate += static_cast<char>(wide[i]);
            if (candidate.size() == end - start && ParseVersion(candidate)) {
                version = candidate;
                return true;
            }
        }
    }
    return false;
}

}  // namespace kpm

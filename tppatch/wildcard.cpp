#include "tppatch/wildcard.h"

#include <cctype>

#include "tppatch/version.h"

namespace kpm {

namespace {

bool sameChar(char a, char b) {
    return std::tolower(static_cast<unsigned char>(a)) == std::tolower(static_cast<unsigned char>(b));
}

// Longer values are no product's name or version: they never match a pattern
// with a placeholder, which keeps the search below a few thousand tries.
constexpr size_t kLongestExtracted = 256;

}  // namespace

bool WildcardMatch(std::string_view pattern, std::string_view text) {
    // Greedy with one back-track point: the last "*" seen.
    size_t p = 0, t = 0, star = std::string_view::npos, mark = 0;
    while (t < text.size()) {
        if (p < pattern.size() && pattern[p] == '*') {
            star = p++;
            mark = t;
        } else if (p < pattern.size() && (pattern[p] == '?' || sameChar(pattern[p], text[t]))) {
            ++p;
            ++t;
        } else if (star != std::string_view::npos) {
            p = star + 1;
            t = ++mark;
        } else {
            return false;
        }
    }
    while (p < pattern.size() && pattern[p] == '*') ++p;
    return p == pattern.size();
}

bool WildcardEquals(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i)
        if (!sameChar(a[i], b[i])) return false;
    return true;
}

bool ExtractVersion(std::string_view pattern, std::string_view text, std::string& version) {
    const size_t at = pattern.find("{version}");
    if (at == std::string_view::npos || text.size() > kLongestExtracted) return false;
    const std::string_view before = pattern.substr(0, at), after = pattern.substr(at + 9);
    for (size_t start = 0; start < text.size(); ++start) {
        if (!std::isdigit(static_cast<unsigned char>(text[start])) && text[start] != 'v' && text[start] != 'V') continue;
        if (!WildcardMatch(before, text.substr(0, start))) continue;
        for (size_t end = text.size(); end > start; --end) {
            if (!WildcardMatch(after, text.substr(end))) continue;
            const std::string_view candidate = text.substr(start, end - start);
            if (ParseVersion(candidate)) {
                version.assign(candidate);
                return true;
            }
        }
    }
    return false;
}

}  // namespace kpm

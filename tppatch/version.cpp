#include "tppatch/version.h"

#include <cctype>

namespace kpm {

namespace {

bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isLetter(char c) { return std::isalpha(static_cast<unsigned char>(c)) || static_cast<unsigned char>(c) >= 0x80; }

// Digit runs compare as numbers of any length: fewer digits (leading zeros
// gone) is smaller, then digit by digit.
int compareDigits(const std::string& a, const std::string& b) {
    if (a.size() != b.size()) return a.size() < b.size() ? -1 : 1;
    return a.compare(b) < 0 ? -1 : a.compare(b) > 0 ? 1 : 0;
}

// Words that name a version before its release: "2.0 RC1" comes before
// "2.0". In alphabetical order they are also in order of maturity.
bool isPreRelease(const ProductVersion::Run& run) {
    if (run.digits) return false;
    for (const char* word : {"alpha", "beta", "pre", "preview", "rc"})
        if (run.text == word) return true;
    return false;
}

// A separator between two numbers of the core: a dot, or a comma with or
// without blanks after it ("9, 5, 0, 0" and "9,5,0,0", as installers write
// FILEVERSION).
size_t separatorAt(std::string_view text, size_t i) {
    if (i >= text.size()) return 0;
    size_t n = 0;
    if (text[i] == '.') n = 1;
    else if (text[i] == ',') for (n = 1; i + n < text.size() && text[i + n] == ' ';) ++n;
    return n && i + n < text.size() && isDigit(text[i + n]) ? n : 0;
}

}  // namespace

std::optional<ProductVersion> ParseVersion(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
    if (text.size() >= 2 && (text[0] == 'v' || text[0] == 'V') && isDigit(text[1])) text.remove_prefix(1);
    if (text.empty() || !isDigit(text[0])) return std::nullopt;

    ProductVersion v;
    size_t i = 0;
    while (true) {
        uint64_t n = 0;
        for (; i < text.size() && isDigit(text[i]); ++i) {
            const uint64_t digit = static_cast<uint64_t>(text[i] - '0');
            if (n > (UINT64_MAX - digit) / 10) return std::nullopt;
            n = n * 10 + digit;
        }
        v.core.push_back(n);
        if (const size_t n = separatorAt(text, i)) {
            i += n;
            continue;
        }
        break;
    }
    while (!v.core.empty() && v.core.back() == 0) v.core.pop_back();

    while (i < text.size()) {
        const char c = text[i];
        if (!isDigit(c) && !isLetter(c)) {
            ++i;
            continue;
        }
        ProductVersion::Run run;
        run.digits = isDigit(c);
        for (; i < text.size() && (run.digits ? isDigit(text[i]) : isLetter(text[i])); ++i)
            run.text += run.digits ? text[i] : static_cast<char>(std::tolower(static_cast<unsigned char>(text[i])));
        if (run.digits) {
            const size_t first = run.text.find_first_not_of('0');
            run.text = first == std::string::npos ? "0" : run.text.substr(first);
        }
        v.suffix.push_back(std::move(run));
    }
    return v;
}

int CompareVersions(const ProductVersion& a, const ProductVersion& b) {
    const size_t parts = std::max(a.core.size(), b.core.size());
    for (size_t i = 0; i < parts; ++i) {
        const uint64_t x = i < a.core.size() ? a.core[i] : 0, y = i < b.core.size() ? b.core[i] : 0;
        if (x != y) return x < y ? -1 : 1;
    }
    for (size_t i = 0; i < a.suffix.size() && i < b.suffix.size(); ++i) {
        const auto &x = a.suffix[i], &y = b.suffix[i];
        if (x.digits != y.digits) return x.digits ? 1 : -1;  // a number is newer than letters
        const int c = x.digits ? compareDigits(x.text, y.text) : x.text.compare(y.text);
        if (c != 0) return c < 0 ? -1 : 1;
    }
    // A suffix that goes on after the other ended is newer, unless it goes on
    // with a pre-release word.
    if (a.suffix.size() != b.suffix.size()) {
        const bool aLonger = a.suffix.size() > b.suffix.size();
        const bool pre = isPreRelease(aLonger ? a.suffix[b.suffix.size()] : b.suffix[a.suffix.size()]);
        return aLonger != pre ? 1 : -1;
    }
    return 0;
}

}  // namespace kpm

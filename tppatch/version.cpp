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
        if (i + 1 < text.size() && text[i] == '.' && isDigit(text[i + 1])) {
            ++i;
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
    // A suffix that goes on after the other ended is newer.
    if (a.suffix.size() != b.suffix.size()) return a.suffix.size() < b.suffix.size() ? -1 : 1;
    return 0;
}

}  // namespace kpm

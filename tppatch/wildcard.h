// Text patterns of the product list: "*" any run of characters, "?" one
// character, case not counting. Wildcards, not regular expressions: their
// matching time is bounded by the two lengths, whatever the pattern.
#pragma once

#include <string>
#include <string_view>

namespace kpm {

bool WildcardMatch(std::string_view pattern, std::string_view text);
// Equal texts, case not counting.
bool WildcardEquals(std::string_view a, std::string_view b);
// The part of `text` at "{version}" of `pattern` (a wildcard pattern with that
// one placeholder) that reads as a version: the leftmost start, the longest
// text. False when the text does not fit the pattern.
bool ExtractVersion(std::string_view pattern, std::string_view text, std::string& version);

}  // namespace kpm

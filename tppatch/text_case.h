// Names from the product list and the registry compared as Windows compares
// file names: character by character in the computer's ANSI code page, case
// not counting, non-ASCII letters included ("É" is "é", "Ÿ" is "ÿ").
#pragma once

#include <string>
#include <string_view>

namespace kpm {

// The text as UTF-16, in the computer's ANSI code page.
std::u16string WideText(std::string_view ansi);
// Upper case, one unit for one: equal results are names Windows takes for the same.
std::u16string Folded(std::u16string_view wide);
inline std::u16string FoldedText(std::string_view ansi) { return Folded(WideText(ansi)); }
// The text in UTF-8, for files any XML reader opens on any computer.
std::string Utf8Text(std::string_view ansi);

}  // namespace kpm

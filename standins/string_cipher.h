// The stand-in for the maker's string-encryption class's cipher, shared by
// the class itself, the sites server (which reads encrypted posts) and
// kpmdwld-encdec. A text is run through the project's KEncDec stand-in cipher
// (standins/cipher.h) and the resulting bytes are written in Base64, so that
// the encrypted text is plain ASCII that never contains "]]>" and can travel
// inside a CDATA section of a posted document.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace standins {

std::string encryptString(std::string_view text);
// nullopt when `encrypted` is not Base64 (blanks and line breaks are skipped).
std::optional<std::string> decryptString(std::string_view encrypted);

// An encrypted post as the program sends it: one or more elements around a
// CDATA section that holds the encrypted document. Returns the decrypted
// document of the first CDATA section, or of the whole text when it has none;
// nullopt when that is not an encrypted text.
std::optional<std::string> decryptPostedDocument(std::string_view body);

}  // namespace standins

// The stand-in for the maker's KEncDec cipher on test and demo machines: a
// reversible transform of the same length. Printable ASCII is shifted within
// the printable range by a repeating key; every other byte (line ends, tabs,
// non-ASCII) is left as it is, so an encrypted text file stays a text file.
#pragma once

#include <string>

namespace standins {

void cipherEncrypt(std::string& buffer, size_t length);
void cipherDecrypt(std::string& buffer, size_t length);

}  // namespace standins

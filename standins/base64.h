// Base64 (RFC 4648, with padding): the encrypted posts' text form and the
// proxy's Basic credentials.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace standins {

std::string toBase64(const std::string& bytes);
// nullopt when `text` is not Base64; blanks and line breaks are skipped,
// nothing may follow the padding.
std::optional<std::string> fromBase64(std::string_view text);

}  // namespace standins

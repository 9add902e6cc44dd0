// Texts that the third-party log entries take from the product list or the
// registry, made safe for the activity log.
#pragma once

#include <string>
#include <string_view>

namespace kpm {

// The text with every control character shown as an escape ("\r", "\n",
// "\t", else "\xNN"): a product name or a user's registry value never starts
// a line of its own in the SYSTEM agent's log. Other bytes stay as they are.
std::string LogText(std::string_view text);

}  // namespace kpm

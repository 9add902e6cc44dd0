// Text rules the selection applies to what the update agent reports.
#pragma once

#include <cstdint>
#include <string>

#include "platform/variant.h"

namespace kpm {

// InStr(1, text, part, text compare) > 0: an empty part is found in any
// non-empty text, nothing is found in an empty text.
bool containsText(const std::string& text, const std::string& part);

// A date value as "yyyymmdd" read as a number. Error 13 when it is no date.
int32_t dateValueYmd(const platform::Variant& value);

}  // namespace kpm

#include "mspatch/update_text.h"

#include "config/ini.h"
#include "platform/datetime.h"
#include "platform/errors.h"
#include "platform/host.h"
#include "schedule/schedule_text.h"

namespace kpm {

bool containsText(const std::string& text, const std::string& part) {
    if (text.empty()) return false;
    return UCase(text).find(UCase(part)) != std::string::npos;
}

int32_t dateValueYmd(const platform::Variant& value) {
    platform::DateTime t = value.type() == platform::Variant::Type::Date
                               ? platform::fromOleDate(value.toOleDate())
                               : schedule_text::parseIniDate(value.toString());
    return t.year * 10000 + t.month * 100 + t.day;
}

}  // namespace kpm

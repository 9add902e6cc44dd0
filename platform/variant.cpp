#include "platform/variant.h"

#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "platform/automation.h"
#include "platform/datetime.h"
#include "platform/errors.h"
#include "platform/host.h"

namespace platform {

namespace {

std::string trimBlanks(std::string_view s) {
    size_t b = 0, e = s.size();
    while (b < e && std::isspace(static_cast<unsigned char>(s[b]))) ++b;
    while (e > b && std::isspace(static_cast<unsigned char>(s[e - 1]))) --e;
    return std::string(s.substr(b, e - b));
}

// The runtime's numeric parse of a text: blanks around, optional sign,
// digits with an optional fraction and exponent; "True"/"False" are not numbers.
bool parseNumber(std::string_view text, double& out) {
    std::string t = trimBlanks(text);
    if (t.empty()) return false;
    const char* begin = t.c_str();
    char* end = nullptr;
    out = std::strtod(begin, &end);
    if (end == begin || *end != '\0') return false;
    // strtod accepts hex, inf and nan, which the runtime does not.
    for (char c : t)
        if (std::isalpha(static_cast<unsigned char>(c)) && c != 'e' && c != 'E') return false;
    return true;
}

// Banker's rounding, as the runtime's integer conversions do.
int64_t roundHalfEven(double v) {
    double r = std::nearbyint(v);  // default rounding mode is to-nearest-even
    return static_cast<int64_t>(r);
}

}  // namespace

Variant::Variant(const Object& o) : value_(o.ptr()) {}

Variant::Type Variant::type() const {
    switch (value_.index()) {
    case 0: return Type::Empty;
    case 1: return Type::Null;
    case 2: return Type::Bool;
    case 3: return Type::Long;
    case 4: return Type::Double;
    case 5: return Type::Date;
    case 6: return Type::String;
    default:
        return std::get<std::shared_ptr<Dispatch>>(value_) ? Type::Object : Type::Empty;
    }
}

std::string formatNumber(double value) {
    if (value == 0) return "0";
    char buf[64];
    std::snprintf(buf, sizeof buf, "%.15G", value);
    std::string s = buf;
    // "%G" may keep trailing zeros in the mantissa of an exponent form.
    auto epos = s.find('E');
    std::string mant = s.substr(0, epos), expo = epos == std::string::npos ? "" : s.substr(epos);
    if (mant.find('.') != std::string::npos) {
        while (!mant.empty() && mant.back() == '0') mant.pop_back();
        if (!mant.empty() && mant.back() == '.') mant.pop_back();
    }
    if (!expo.empty()) {
        // "E+020" style is not used: print E+20 / E-07 as the runtime does.
        char sign = expo.size() > 1 ? expo[1] : '+';
        std::string digits = expo.substr(2);
        while (digits.size() > 2 && digits[0] == '0') digits.erase(0, 1);
        expo = std::string("E") + sign + digits;
    }
    return mant + expo;
}

std::string Variant::toString() const {
    switch (type()) {
    case Type::Empty: return {};
    case Type::Null: throw makeError(err::InvalidUseOfNull);
    case Type::Bool: return std::get<bool>(value_) ? "True" : "False";
    case Type::Long: return std::to_string(std::get<int64_t>(value_));
    case Type::Double: return formatNumber(std::get<double>(value_));
    case Type::Date: {
        // In the machine's locale, as the runtime converts a date; without a
        // binding, in English (United States).
        DateTime t = fromOleDate(std::get<DateTag>(value_).oleDate);
        if (hasHost()) return clock().dateText(t);
        char date[32] = "", time[32] = "";
        int h12 = t.hour % 12 == 0 ? 12 : t.hour % 12;
        std::snprintf(date, sizeof date, "%d/%d/%04d", t.month, t.day, t.year);
        std::snprintf(time, sizeof time, "%d:%02d:%02d %s", h12, t.minute, t.second, t.hour < 12 ? "AM" : "PM");
        const bool midnight = t.hour == 0 && t.minute == 0 && t.second == 0;
        const bool dayZero = t.year == 1899 && t.month == 12 && t.day == 30;
        if (dayZero) return time;
        return midnight ? date : std::string(date) + " " + time;
    }
    case Type::String: return std::get<std::string>(value_);
    case Type::Object: throw makeError(err::NoSuchMember);
    }
    return {};
}

double Variant::toDouble() const {
    switch (type()) {
    case Type::Empty: return 0;
    case Type::Null: throw makeError(err::InvalidUseOfNull);
    case Type::Bool: return std::get<bool>(value_) ? -1 : 0;
    case Type::Long: return static_cast<double>(std::get<int64_t>(value_));
    case Type::Double: return std::get<double>(value_);
    case Type::Date: return std::get<DateTag>(value_).oleDate;
    case Type::String: {
        double d;
        const auto& s = std::get<std::string>(value_);
        if (parseNumber(s, d)) return d;
        if (iequals(trimBlanks(s), "True")) return -1;
        if (iequals(trimBlanks(s), "False")) return 0;
        throw makeError(err::TypeMismatch);
    }
    case Type::Object: throw makeError(err::TypeMismatch);
    }
    return 0;
}

int64_t Variant::toLong() const {
    if (type() == Type::Long) return std::get<int64_t>(value_);
    double d = toDouble();
    if (!(d > -9.3e18 && d < 9.3e18)) throw makeError(err::Overflow);
    return roundHalfEven(d);
}

bool Variant::toBool() const { return toDouble() != 0; }

double Variant::toOleDate() const {
    if (type() == Type::Date) return std::get<DateTag>(value_).oleDate;
    return toDouble();
}

std::shared_ptr<Dispatch> Variant::dispatch() const {
    if (auto p = std::get_if<std::shared_ptr<Dispatch>>(&value_)) return *p;
    return nullptr;
}

Object Variant::toObject() const {
    auto p = dispatch();
    if (!p) throw makeError(type() == Type::Empty ? err::ObjectVariableNotSet : err::ObjectRequired);
    return Object(p);
}

}  // namespace platform

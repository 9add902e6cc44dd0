// Values passed to and returned by late-bound automation calls, and the
// conversions the program applies to them (the automation runtime's rules:
// Empty reads as "" or 0, booleans print as True/False, and so on).
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace platform {

class Dispatch;
class Object;

class Variant {
public:
    enum class Type { Empty, Null, Bool, Long, Double, Date, String, Object };
    struct NullTag {};
    struct DateTag {
        double oleDate = 0;  // days since 1899-12-30, fraction = time of day
    };

    Variant() = default;
    Variant(NullTag) : value_(NullTag{}) {}
    Variant(bool b) : value_(b) {}
    Variant(int v) : value_(static_cast<int64_t>(v)) {}
    Variant(long v) : value_(static_cast<int64_t>(v)) {}
    Variant(long long v) : value_(static_cast<int64_t>(v)) {}
    Variant(unsigned v) : value_(static_cast<int64_t>(v)) {}
    Variant(unsigned long v) : value_(static_cast<int64_t>(v)) {}
    Variant(unsigned long long v) : value_(static_cast<int64_t>(v)) {}
    Variant(double v) : value_(v) {}
    Variant(DateTag d) : value_(d) {}
    Variant(std::string s) : value_(std::move(s)) {}
    Variant(std::string_view s) : value_(std::string(s)) {}
    Variant(const char* s) : value_(std::string(s)) {}
    Variant(std::shared_ptr<Dispatch> o) : value_(std::move(o)) {}
    Variant(const Object& o);

    static Variant null() { return Variant(NullTag{}); }

    Type type() const;
    bool isEmpty() const { return type() == Type::Empty; }
    bool isNull() const { return type() == Type::Null; }
    bool isObject() const { return type() == Type::Object; }

    // Conversions with the runtime's rules; a failed conversion throws
    // ComError 13 (type mismatch) or 94 (Null), a missing object 424.
    std::string toString() const;
    int64_t toLong() const;
    double toDouble() const;
    bool toBool() const;
    double toOleDate() const;
    Object toObject() const;
    std::shared_ptr<Dispatch> dispatch() const;  // null when not an object
    const std::string* text() const { return std::get_if<std::string>(&value_); }  // null when not a string

private:
    std::variant<std::monostate, NullTag, bool, int64_t, double, DateTag, std::string,
                 std::shared_ptr<Dispatch>>
        value_;
};

// Formats a double the way the runtime prints it (up to 15 significant digits,
// no exponent for ordinary magnitudes, no trailing zeros).
std::string formatNumber(double value);

}  // namespace platform

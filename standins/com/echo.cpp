#include "standins/com/echo.h"

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/errors.h"

namespace standins {

namespace {

const char* typeName(const Variant& v) {
    switch (v.type()) {
    case Variant::Type::Empty: return "Empty";
    case Variant::Type::Null: return "Null";
    case Variant::Type::Bool: return "Boolean";
    case Variant::Type::Long: return "Long";
    case Variant::Type::Double: return "Double";
    case Variant::Type::Date: return "Date";
    case Variant::Type::String: return "String";
    case Variant::Type::Object: return "Object";
    }
    return "?";
}

}  // namespace

Echo::Echo() : DispatchBase(kEchoProgId) {
    method("Identity", 1, [](Args a) { return a[0].value; });
    method("TypeName", 1, [](Args a) { return Variant(typeName(a[0].value)); });
    method("ArgCount", 0, 9, [](Args a) { return Variant(static_cast<long long>(a.size())); });
    method("Concat", 1, 9, [](Args a) {
        std::string s;
        for (auto& x : a) s += x.value.toString();
        return Variant(s);
    });
    method("Swap", 2, [](Args a) {
        std::swap(a[0].value, a[1].value);
        return Variant();
    });
    method("Append", 2, [](Args a) {
        a[0].value = Variant(a[0].value.toString() + a[1].value.toString());
        return Variant(static_cast<long long>(a[0].value.toString().size()));
    });
    method("Increment", 1, [](Args a) {
        a[0].value = Variant(a[0].value.toLong() + 1);
        return Variant();
    });
    method("Raise", 1, 3, [this](Args a) -> Variant {
        auto number = static_cast<int32_t>(a[0].value.toLong());
        std::string source = a.size() > 1 ? a[1].value.toString() : this->source();
        std::string description = a.size() > 2 ? a[2].value.toString() : platform::describeError(number);
        throw platform::ComError(number, source, description);
    });
    property("Value", [this] { return value_; }, [this](const Variant& v) { value_ = v; });
    method("Items", 1, [](Args a) {
        std::vector<Variant> items;
        for (long long i = 1; i <= a[0].value.toLong(); ++i) items.emplace_back(i);
        return Variant(std::make_shared<Collection>(kEchoProgId, std::move(items)));
    });
}

}  // namespace standins

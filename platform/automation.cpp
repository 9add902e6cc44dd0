#include "platform/automation.h"

#include <cctype>

namespace platform {

std::vector<Variant> Dispatch::enumerate() { throw makeError(err::NoSuchMember); }

void Object::put(std::string_view member, Variant value) {
    std::vector<Arg> args{Arg{std::move(value), false}};
    dispatchChecked().invoke(member, CallKind::PropertyPut, args);
}

std::vector<Variant> Object::items() { return dispatchChecked().enumerate(); }

Dispatch& Object::dispatchChecked() const {
    if (!p_) throw makeError(err::ObjectVariableNotSet);
    return *p_;
}

bool iequals(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i)
        if (std::tolower(static_cast<unsigned char>(a[i])) !=
            std::tolower(static_cast<unsigned char>(b[i])))
            return false;
    return true;
}

}  // namespace platform

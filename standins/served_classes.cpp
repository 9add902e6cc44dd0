#include "standins/served_classes.h"

#include "platform/automation.h"

namespace standins {

const ServedClass* findServedClass(std::string_view progId) {
    for (const auto& c : kServedClasses)
        if (platform::iequals(c.progId, progId)) return &c;
    return nullptr;
}

const ServedClass* findServedClassById(std::string_view clsid) {
    for (const auto& c : kServedClasses)
        if (platform::iequals(c.clsid, clsid)) return &c;
    return nullptr;
}

bool servesClass(std::string_view dllFileName, const ServedClass& c) {
    return !c.dll.empty() && platform::iequals(c.dll, dllFileName);
}

bool isMakerDll(std::string_view dllFileName) {
    for (const auto& c : kServedClasses)
        if (servesClass(dllFileName, c)) return true;
    return false;
}

}  // namespace standins

#include "tppatch/uninstall_entry.h"

#include "tppatch/wildcard.h"

namespace kpm {

namespace {

bool ruleTests(const Detection& rule, const char* name) {
    for (const auto& t : rule.tests)
        if (WildcardEquals(t.value, name)) return true;
    return false;
}

}  // namespace

std::string NotAnInstall(const Detection& rule, const EntryValue& value) {
    // A hidden entry: a runtime or a second entry the same installer writes.
    if (!ruleTests(rule, "SystemComponent")) {
        const auto& v = value("SystemComponent");
        if (v && v->type == platform::regtype::Dword && v->dwordValue() == 1) return "SystemComponent=1";
    }
    // An update or hotfix of another entry.
    if (!ruleTests(rule, "ParentKeyName")) {
        const auto& v = value("ParentKeyName");
        if (v && v->isText() && !v->text().empty()) return "ParentKeyName=" + v->text();
    }
    if (!ruleTests(rule, "ReleaseType")) {
        const auto& v = value("ReleaseType");
        if (v && v->isText()) {
            const std::string type = v->text();
            for (const char* update : {"Update", "Hotfix", "Security Update"})
                if (WildcardEquals(type, update)) return "ReleaseType=" + type;
        }
    }
    return "";
}

}  // namespace kpm

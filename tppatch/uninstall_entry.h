// Uninstall entries that are not installs of their own: what Apps & Features
// hides (docs/third-party.md, "Entries that are not installs").
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "platform/registry.h"
#include "tppatch/catalogue.h"

namespace kpm {

// Reads one value of the entry; nullopt when it is missing.
using EntryValue = std::function<const std::optional<platform::RegValue>&(const std::string& name)>;

// Why the entry is no install ("SystemComponent=1", "ParentKeyName=Contoso
// Studio", "ReleaseType=Hotfix"), or "" when it is one. A value the rule
// tests itself is the rule's to decide: it asked for such entries.
std::string NotAnInstall(const Detection& rule, const EntryValue& value);

}  // namespace kpm

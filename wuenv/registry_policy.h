// The Automatic Updates policy values and the Microsoft Update registration.
#pragma once

#include <cstdint>
#include <string>

#include "platform/registry.h"

namespace kpm {

// The key paths AutoUpdateReg sets on each call.
struct PolicyKeys {
    std::string AutoUpdateKey, SecurityCenterKey, ServiceKey;
};
inline PolicyKeys policyKeys;

inline constexpr const char* kMicrosoftUpdateServiceID = "7971f918-a847-4430-9279-4a52d1efe18d";
inline constexpr const char* kClientApplicationID = "My App";

void AutoUpdateReg();
bool RegistryEditable();
int16_t SetRegDwordValue(const std::string& valueName, uint32_t value, const std::string& keyPath);
int16_t SetRegDwordValue64(const std::string& valueName, uint32_t value, const std::string& keyPath);
// Reads a string (or binary, or DWORD as its number) value; "" on any failure.
std::string RegQueryStringValue(platform::Hive hive, const std::string& keyPath,
                                const std::string& valueName);
void SaveString(platform::Hive hive, const std::string& keyPath, const std::string& valueName,
                const std::string& text);
void subMURegistryKeys();
void subWUMSSwitch();

}  // namespace kpm

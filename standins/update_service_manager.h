// Stand-in for the Windows Update Agent's "Microsoft.Update.ServiceManager"
// on machines that have no update agent. It registers nothing: it records
// what it was asked into a small INI-style text file, so a test can see which
// services a pass added and with which options:
//
//   [ServiceManager]
//   ClientApplicationID=My App
//   [Service 7971f918-a847-4430-9279-4a52d1efe18d]
//   Flags=7
//   AuthorizationCabPath=
//   ClientApplicationID=My App
//
// The file accumulates across objects and processes (each write updates the
// named entries and keeps the rest). AddService2 returns a registration
// object (RegistrationState, ServiceID, IsPendingRegistrationWithAU, Service)
// whose Service has Name, ServiceID, IsRegisteredWithAU, IsManaged and
// IsDefaultAUService.
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "standins/dispatch_base.h"

namespace standins {

// The Microsoft Update service, the one service the program adds.
inline constexpr const char* kMicrosoftUpdateServiceId = "7971f918-a847-4430-9279-4a52d1efe18d";

// AddServiceFlag values.
namespace addservice {
constexpr long AllowPendingRegistration = 1;
constexpr long AllowOnlineRegistration = 2;
constexpr long RegisterServiceWithAU = 4;
}  // namespace addservice

// WUA's E_INVALIDARG and the failure to write the record.
constexpr int32_t kInvalidArg = static_cast<int32_t>(0x80070057);
constexpr int32_t kRecordWriteFailed = static_cast<int32_t>(0x80004005);

class UpdateServiceManager : public DispatchBase {
public:
    // recordFile: host path of the record; its folder must exist.
    explicit UpdateServiceManager(std::filesystem::path recordFile);

private:
    Variant addService2(const std::string& serviceId, long flags, const std::string& cabPath);
    // Sets the keys in [section] of the record file, keeping everything else.
    void record(const std::string& section,
                const std::vector<std::pair<std::string, std::string>>& values);

    std::filesystem::path recordFile_;
    std::string clientApplicationId_;
};

// True for the registry form of a GUID without braces: 8-4-4-4-12 hex digits.
bool isGuidText(const std::string& text);

}  // namespace standins

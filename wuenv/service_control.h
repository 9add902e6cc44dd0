// Service control: the five control actions on a service, the state query
// over the installed services, and the Windows Update service check the scan
// starts with.
#pragma once

#include <cstdint>
#include <string>

namespace kpm {

// Process-wide values of the service routines.
struct ServiceControlState {
    // Passed along to every action; all calls address the local computer.
    std::string MachineName;
    // The trimmed "Start" value chkAutomaticUpdateService read last.
    std::string StartValue;
};
inline ServiceControlState serviceControl;

// Action numbers of fncUpdSetService.
namespace svcaction {
constexpr int16_t Start = 1, Stop = 2, Restart = 3, Pause = 4, Continue = 5;
}

// Runs action 1 … 5 on the service; any other number does nothing. True on success.
bool fncUpdSetService(const std::string& serviceName, int16_t action, const std::string& machine);
bool fncUpdSetServiceStarted(const std::string& serviceName, const std::string& machine);
bool fncUpdSetServiceStopped(const std::string& serviceName, const std::string& machine);
bool fncUpdSetServicePaused(const std::string& serviceName, const std::string& machine);
bool fncUpdSetServiceContinued(const std::string& serviceName, const std::string& machine);
bool fncUpdSetServiceReStarted(const std::string& serviceName, const std::string& machine);

// The state text of a service control manager state number ("stopped" …
// "paused"); "" for any other number.
std::string ServiceStateText(uint32_t state);

// True when the named service (matched without regard to case) is installed
// and its current state text is exactly `state`.
bool EnumUpdSystemServices(const std::string& serviceName, const std::string& state, const std::string& machine);

// Sets the Windows Update service to start automatically, or starts (or
// continues) it when it already does. Reads the service key AutoUpdateReg
// set (policyKeys.ServiceKey). True in every completed case.
bool chkAutomaticUpdateService();

}  // namespace kpm

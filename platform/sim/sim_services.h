// The simulated service control manager. The services and their current
// states are machine.ini's [Services] lines, written back in place whenever a
// state (or a start-fault counter) changes; each service's start type is the
// "Start" value under HKLM\SYSTEM\CurrentControlSet\Services\<name>.
// docs/simulated-machine.md describes the keys.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "platform/registry.h"
#include "platform/services.h"

namespace platform::sim {

struct MachineState;

// What machine.ini says of one service.
struct SimService {
    std::string name;            // as written in machine.ini
    uint32_t state = svc::Stopped;
    uint32_t failStarts = 0;     // the next N starts fail (1053)
    bool refuseStop = false;     // stop is not accepted (1052)
    bool refusePause = false;    // pause and continue are not accepted (1052)
};

// How much of the manager a caller may have ([ServiceManager] Access).
enum class ManagerAccess { All, User, None };

// Reads [Services] and [ServiceManager] from machine.ini's text; throws
// MachineError naming the line. Without a [Services] section the machine has
// "wuauserv", stopped.
void parseServices(const std::string& iniText, std::vector<SimService>& services, ManagerAccess& access);

// A service's value text as machine.ini keeps it ("running, failstarts=2").
std::string serviceValueText(const SimService& s);

class SimServices : public Services {
public:
    SimServices(MachineState& state, Registry& registry);

    ScHandle openManager(uint32_t access) override;
    ScHandle openService(ScHandle manager, std::string_view name, uint32_t access) override;
    bool control(ScHandle service, uint32_t control, ServiceStatus& status) override;
    bool start(ScHandle service) override;
    bool enumerate(ScHandle manager, uint32_t serviceType, uint32_t serviceState, uint32_t bufferBytes,
                   std::vector<ServiceRecord>& records, uint32_t& bytesNeeded,
                   uint32_t& resumeHandle) override;
    bool close(ScHandle handle) override;

private:
    struct Handle {
        bool isManager = false;
        size_t service = 0;    // index into services_
        uint32_t granted = 0;  // access rights the handle carries
    };

    bool fail(uint32_t error);
    ScHandle noHandle(uint32_t error);
    Handle* find(ScHandle h, bool manager);
    ServiceStatus statusOf(const SimService& s) const;
    // The registry's "Start" (4 = disabled) and "DisplayName" of a service.
    uint32_t startType(const SimService& s);
    std::string displayName(const SimService& s);
    // Sets a service's state and fault counter and writes its line back;
    // false (last error 29) when machine.ini cannot be written.
    bool commit(size_t index, uint32_t state, uint32_t failStarts);

    MachineState& state_;
    Registry& registry_;
    std::vector<SimService> services_;
    ManagerAccess access_ = ManagerAccess::All;
    std::map<ScHandle, Handle> handles_;
    ScHandle next_ = 0x1000;
};

}  // namespace platform::sim

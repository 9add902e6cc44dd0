#include "wuenv/service_control.h"

#include <array>
#include <exception>
#include <vector>

#include "config/ini.h"
#include "log/w3c_log.h"
#include "platform/host.h"
#include "wuenv/registry_policy.h"

namespace kpm {

namespace {

using platform::ScHandle;
namespace svc = platform::svc;

constexpr uint32_t kControlWaitMs = 2000;  // before each control, and between start attempts
constexpr uint32_t kStartedWaitMs = 10000;  // for the service to come up after a successful start
constexpr int kStartAttempts = 5;

[[noreturn]] void raiseStep(const std::string& source, const std::string& description) {
    throw platform::ComError(platform::err::LowLevelStep, source, description);
}

// A service control manager handle, closed when it goes.
class ScOwner {
public:
    explicit ScOwner(ScHandle h = 0) : h_(h) {}
    ScOwner(const ScOwner&) = delete;
    ScOwner& operator=(const ScOwner&) = delete;
    ~ScOwner() { reset(); }
    ScHandle get() const { return h_; }
    void reset(ScHandle h = 0) {
        if (h_) platform::services().close(h_);
        h_ = h;
    }

private:
    ScHandle h_;
};

// Opens the manager and the service, raising the step that failed.
void openBoth(ScOwner& manager, uint32_t managerAccess, ScOwner& service, const std::string& name,
              uint32_t serviceAccess, const char* proc) {
    manager.reset(platform::services().openManager(managerAccess));
    if (!manager.get()) raiseStep("hSCManager", std::string(proc) + " : 0");
    service.reset(platform::services().openService(manager.get(), name, serviceAccess));
    if (!service.get()) raiseStep("hService", std::string(proc) + " : 0");
}

// Up to five starts, two seconds apart; ten seconds for the service to come up.
void startWithRetries(ScHandle service, const char* proc) {
    for (int attempt = 0; attempt < kStartAttempts; ++attempt) {
        if (platform::services().start(service)) {
            platform::clock().sleep(kStartedWaitMs);
            return;
        }
        platform::clock().sleep(kControlWaitMs);
    }
    raiseStep("blnStart", std::string(proc) + " : 0");
}

// Stop, pause and continue: connect to the manager, open the service with the
// control's right, wait, send the control.
bool controlAction(const std::string& name, uint32_t serviceAccess, uint32_t control, const char* proc) {
    try {
        ScOwner manager, service;
        openBoth(manager, svc::ManagerConnect, service, name, serviceAccess, proc);
        platform::clock().sleep(kControlWaitMs);
        platform::ServiceStatus status;
        if (!platform::services().control(service.get(), control, status))
            raiseStep("ControlService", std::string(proc) + " : 0");
        return true;
    } catch (const std::exception&) {
        return false;  // the step's error ends the action; nothing is logged
    }
}

void logCheck(const std::string& type, const std::string& message, const std::string& value = "") {
    WriteW3CLog("ModAutoUpdService", "chkAutomaticUpdateService", type, message, value);
}

}  // namespace

bool fncUpdSetServiceStopped(const std::string& serviceName, const std::string&) {
    return controlAction(serviceName, svc::ServiceStop, svc::ControlStop, "fncUpdSetServiceStopped");
}

bool fncUpdSetServicePaused(const std::string& serviceName, const std::string&) {
    return controlAction(serviceName, svc::ServicePauseContinue, svc::ControlPause, "fncUpdSetServicePaused");
}

bool fncUpdSetServiceContinued(const std::string& serviceName, const std::string&) {
    return controlAction(serviceName, svc::ServicePauseContinue, svc::ControlContinue,
                         "fncUpdSetServiceContinued");
}

bool fncUpdSetServiceStarted(const std::string& serviceName, const std::string&) {
    const char* proc = "fncUpdSetServiceStarted";
    try {
        ScOwner manager, service;
        openBoth(manager, svc::ManagerAllRights, service, serviceName, svc::ServiceAllRights, proc);
        startWithRetries(service.get(), proc);
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

bool fncUpdSetServiceReStarted(const std::string& serviceName, const std::string&) {
    const char* proc = "fncUpdSetServiceReStarted";
    try {
        ScOwner manager, service;
        openBoth(manager, svc::ManagerConnect, service, serviceName, svc::ServiceStop, proc);
        platform::clock().sleep(kControlWaitMs);
        platform::ServiceStatus status;
        if (!platform::services().control(service.get(), svc::ControlStop, status))
            raiseStep("ControlService", std::string(proc) + " : 0");
        service.reset(platform::services().openService(manager.get(), serviceName, svc::ServiceAllRights));
        if (!service.get()) raiseStep("hService", std::string(proc) + " : 0");
        startWithRetries(service.get(), proc);
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

bool fncUpdSetService(const std::string& serviceName, int16_t action, const std::string& machine) {
    static constexpr std::array<const char*, 6> kKeywords = {"",         "ServiceStart",  "ServiceStop",
                                                             "SERVICERESTART", "SERVICEPAUSE", "SERVICECONTINUE"};
    try {
        bool done = false;
        switch (action) {
        case svcaction::Start: done = fncUpdSetServiceStarted(serviceName, machine); break;
        case svcaction::Stop: done = fncUpdSetServiceStopped(serviceName, machine); break;
        case svcaction::Restart: done = fncUpdSetServiceReStarted(serviceName, machine); break;
        case svcaction::Pause: done = fncUpdSetServicePaused(serviceName, machine); break;
        case svcaction::Continue: done = fncUpdSetServiceContinued(serviceName, machine); break;
        default: return false;
        }
        if (!done)
            raiseStep(kKeywords[action], "fncUpdSetService : " + std::to_string(platform::sys().lastError()));
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

std::string ServiceStateText(uint32_t state) {
    static constexpr std::array<const char*, 8> kTexts = {"",        "stopped",  "startpend", "stoppend",
                                                          "running", "contpend", "pausepend", "paused"};
    return state < kTexts.size() ? kTexts[state] : "";
}

bool EnumUpdSystemServices(const std::string& serviceName, const std::string& state, const std::string&) {
    const char* proc = "EnumUpdSystemServices";
    try {
        ScOwner manager(platform::services().openManager(svc::ManagerEnumerate));
        if (!manager.get()) raiseStep("hSCManager", std::string(proc) + " : 0");

        // First without a buffer, to learn the size the list takes.
        std::vector<platform::ServiceRecord> records;
        uint32_t bytesNeeded = 0, resume = 0;
        if (platform::services().enumerate(manager.get(), svc::TypeWin32, svc::StateAll, 0, records, bytesNeeded,
                                           resume) ||
            platform::sys().lastError() != platform::svcerr::MoreData)
            raiseStep("success = 0", std::string(proc) + " : 0");

        // Room for that many 36-byte records, and one more.
        const uint32_t count = bytesNeeded / svc::EnumRecordSize32 + 1;
        resume = 0;
        if (!platform::services().enumerate(manager.get(), svc::TypeWin32, svc::StateAll,
                                            count * svc::EnumRecordSize32, records, bytesNeeded, resume))
            raiseStep("EnumServicesStatus", std::string(proc) + " : 0");

        const std::string wanted = UCase(serviceName);
        for (const auto& r : records)
            if (UCase(r.serviceName) == wanted) return ServiceStateText(r.status.currentState) == state;
        return false;
    } catch (const std::exception&) {
        return false;
    }
}

bool chkAutomaticUpdateService() {
    try {
        const std::string& key = policyKeys.ServiceKey;
        serviceControl.StartValue = Trim(RegQueryStringValue(platform::Hive::LocalMachine, key, "Start"));
        logCheck("INFO", "Automatic Update Service", serviceControl.StartValue);
        if (serviceControl.StartValue != "2") {
            // The new start type takes effect on a later pass; this one does
            // not start the service. The write's outcome is not checked.
            SetRegDwordValue("Start", 2, key);
            logCheck("ERROR", "Automatic Update Service cannot be set to automatic");
            return true;
        }
        logCheck("INFO", "Automatic Update Service startup type is Automatic");
        logCheck("INFO", "Starting Automatic Update Service");
        const std::string& machine = serviceControl.MachineName;
        if (EnumUpdSystemServices("wuauserv", "paused", machine)) {
            fncUpdSetService("wuauserv", svcaction::Continue, machine);
        } else if (!EnumUpdSystemServices("wuauserv", "running", machine)) {
            fncUpdSetService("wuauserv", svcaction::Start, machine);  // its outcome does not stop the scan
        } else {
            logCheck("INFO", "Service Already running", "wuauserv");
        }
        return true;
    } catch (const std::exception&) {
        // Every routine it calls keeps its own errors; nothing reaches here
        // short of running out of memory.
        return false;
    }
}

}  // namespace kpm

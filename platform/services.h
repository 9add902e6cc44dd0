// The service control manager of the local computer, call for call as the
// Win32 API offers it. Failures return false (or a null handle) and leave
// their reason in the last system error (platform::sys().lastError()).
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace platform {

// An SC_HANDLE; 0 is no handle.
using ScHandle = std::uintptr_t;

// Access rights, control codes, states and error numbers as winsvc.h and
// winerror.h define them.
namespace svc {
// OpenSCManagerA
constexpr uint32_t ManagerConnect = 0x0001;
constexpr uint32_t ManagerEnumerate = 0x0004;
constexpr uint32_t ManagerAllRights = 0x003F;  // every manager right, without the standard ones
// OpenServiceA
constexpr uint32_t ServiceQueryStatus = 0x0004;
constexpr uint32_t ServiceStart = 0x0010;
constexpr uint32_t ServiceStop = 0x0020;
constexpr uint32_t ServicePauseContinue = 0x0040;
constexpr uint32_t ServiceInterrogate = 0x0080;
constexpr uint32_t ServiceAllRights = 0x01FF;  // every service right, without the standard ones
// ControlService
constexpr uint32_t ControlStop = 1;
constexpr uint32_t ControlPause = 2;
constexpr uint32_t ControlContinue = 3;
constexpr uint32_t ControlInterrogate = 4;
// EnumServicesStatusA
constexpr uint32_t TypeWin32 = 0x30;  // own-process and shared-process services
constexpr uint32_t StateActive = 1, StateInactive = 2, StateAll = 3;
// dwCurrentState
constexpr uint32_t Stopped = 1, StartPending = 2, StopPending = 3, Running = 4, ContinuePending = 5,
                   PausePending = 6, Paused = 7;
// dwControlsAccepted
constexpr uint32_t AcceptStop = 0x1, AcceptPauseContinue = 0x2;
// The size of one ENUM_SERVICE_STATUSA record in a 32-bit process.
constexpr uint32_t EnumRecordSize32 = 36;
}  // namespace svc

namespace svcerr {
constexpr uint32_t AccessDenied = 5;
constexpr uint32_t InvalidHandle = 6;
constexpr uint32_t InvalidParameter = 87;
constexpr uint32_t InvalidName = 123;
constexpr uint32_t MoreData = 234;
constexpr uint32_t InvalidServiceControl = 1052;
constexpr uint32_t RequestTimeout = 1053;
constexpr uint32_t AlreadyRunning = 1056;
constexpr uint32_t Disabled = 1058;
constexpr uint32_t DoesNotExist = 1060;
constexpr uint32_t CannotAcceptControl = 1061;
constexpr uint32_t NotActive = 1062;
}  // namespace svcerr

// SERVICE_STATUS.
struct ServiceStatus {
    uint32_t serviceType = 0;
    uint32_t currentState = 0;
    uint32_t controlsAccepted = 0;
    uint32_t win32ExitCode = 0;
    uint32_t serviceSpecificExitCode = 0;
    uint32_t checkPoint = 0;
    uint32_t waitHint = 0;
};

// One ENUM_SERVICE_STATUSA record, its two strings read out.
struct ServiceRecord {
    std::string serviceName;
    std::string displayName;
    ServiceStatus status;
};

class Services {
public:
    virtual ~Services() = default;
    // OpenSCManagerA on the local computer's active database.
    virtual ScHandle openManager(uint32_t access) = 0;
    // OpenServiceA; the name is matched without regard to case.
    virtual ScHandle openService(ScHandle manager, std::string_view name, uint32_t access) = 0;
    // ControlService; `status` gets the service's status when the call
    // returns one.
    virtual bool control(ScHandle service, uint32_t control, ServiceStatus& status) = 0;
    // StartServiceA without arguments.
    virtual bool start(ScHandle service) = 0;
    // EnumServicesStatusA into a buffer of `bufferBytes` bytes (0: no
    // buffer). `records` gets the records that fitted; when not all did, the
    // call fails with MoreData and `bytesNeeded` says how much more room they
    // take. `resumeHandle` is read and updated as the API does.
    virtual bool enumerate(ScHandle manager, uint32_t serviceType, uint32_t serviceState,
                           uint32_t bufferBytes, std::vector<ServiceRecord>& records,
                           uint32_t& bytesNeeded, uint32_t& resumeHandle) = 0;
    // CloseServiceHandle.
    virtual bool close(ScHandle handle) = 0;
};

}  // namespace platform

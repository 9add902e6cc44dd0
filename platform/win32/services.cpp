#include <windows.h>

#include <vector>

#include "platform/services.h"
#include "platform/win32/bindings.h"

namespace platform::win32 {

namespace {

SC_HANDLE sc(ScHandle h) { return reinterpret_cast<SC_HANDLE>(h); }
ScHandle sc(SC_HANDLE h) { return reinterpret_cast<ScHandle>(h); }

ServiceStatus fromStatus(const SERVICE_STATUS& s) {
    ServiceStatus out;
    out.serviceType = s.dwServiceType;
    out.currentState = s.dwCurrentState;
    out.controlsAccepted = s.dwControlsAccepted;
    out.win32ExitCode = s.dwWin32ExitCode;
    out.serviceSpecificExitCode = s.dwServiceSpecificExitCode;
    out.checkPoint = s.dwCheckPoint;
    out.waitHint = s.dwWaitHint;
    return out;
}

class Win32Services final : public Services {
public:
    ScHandle openManager(uint32_t access) override { return sc(OpenSCManagerA(nullptr, nullptr, access)); }

    ScHandle openService(ScHandle manager, std::string_view name, uint32_t access) override {
        const std::string n(name);
        return sc(OpenServiceA(sc(manager), n.c_str(), access));
    }

    bool control(ScHandle service, uint32_t control, ServiceStatus& status) override {
        SERVICE_STATUS s{};
        const BOOL ok = ControlService(sc(service), control, &s);
        const DWORD error = GetLastError();
        status = fromStatus(s);
        SetLastError(error);
        return ok != FALSE;
    }

    bool start(ScHandle service) override { return StartServiceA(sc(service), 0, nullptr) != FALSE; }

    bool enumerate(ScHandle manager, uint32_t serviceType, uint32_t serviceState, uint32_t bufferBytes,
                   std::vector<ServiceRecord>& records, uint32_t& bytesNeeded, uint32_t& resumeHandle) override {
        records.clear();
        // Whole records, so that the strings the system puts behind them stay
        // aligned and the records read through the system's own layout
        // (36 bytes in a 32-bit process, 48 in a 64-bit one).
        std::vector<ENUM_SERVICE_STATUSA> buffer((bufferBytes + sizeof(ENUM_SERVICE_STATUSA) - 1) /
                                                 sizeof(ENUM_SERVICE_STATUSA));
        DWORD needed = 0, returned = 0, resume = resumeHandle;
        const BOOL ok = EnumServicesStatusA(sc(manager), serviceType, serviceState,
                                            buffer.empty() ? nullptr : buffer.data(), bufferBytes, &needed,
                                            &returned, &resume);
        const DWORD error = GetLastError();
        for (DWORD i = 0; i < returned && i < buffer.size(); ++i) {
            const ENUM_SERVICE_STATUSA& e = buffer[i];
            records.push_back(ServiceRecord{e.lpServiceName ? e.lpServiceName : "",
                                            e.lpDisplayName ? e.lpDisplayName : "", fromStatus(e.ServiceStatus)});
        }
        bytesNeeded = needed;
        resumeHandle = resume;
        SetLastError(error);
        return ok != FALSE;
    }

    bool close(ScHandle handle) override { return CloseServiceHandle(sc(handle)) != FALSE; }
};

}  // namespace

std::unique_ptr<Services> newServices() { return std::make_unique<Win32Services>(); }

}  // namespace platform::win32

// The service control manager on both bindings: the two-call enumeration,
// start, stop, pause and continue, and the error numbers of the transitions
// and handles a service refuses. Under Wine these are the prefix's real
// services: wuauserv (no pause), BITS (pausable) and LanmanServer (disabled).
#include "contract_env.h"
#include "platform/host.h"
#include "platform/services.h"
#include "wuenv/service_control.h"

namespace {

using namespace platform;
using contract::ContractTest;

class ServiceManager : public ContractTest {
protected:
    Services& scm() { return host().services(); }

    void setUpServices(bool wuauservRunning, bool bitsRunning) {
        env().setServiceState("wuauserv", wuauservRunning);
        env().setServiceState("BITS", bitsRunning);
        reinstallHost();
    }

    // The service's current state as the enumeration lists it; 0 when absent.
    uint32_t stateOf(const std::string& name) {
        const ScHandle m = scm().openManager(svc::ManagerEnumerate);
        std::vector<ServiceRecord> records;
        uint32_t needed = 0, resume = 0;
        scm().enumerate(m, svc::TypeWin32, svc::StateAll, 0, records, needed, resume);
        resume = 0;
        scm().enumerate(m, svc::TypeWin32, svc::StateAll, needed + 1024, records, needed, resume);
        scm().close(m);
        for (const auto& r : records)
            if (iequals(r.serviceName, name)) return r.status.currentState;
        return 0;
    }
    // Services settle a moment after a control under Wine.
    uint32_t settledState(const std::string& name, uint32_t wanted) {
        uint32_t state = stateOf(name);
        for (int i = 0; i < 100 && state != wanted; ++i) {
            host().clock().sleep(100);
            state = stateOf(name);
        }
        return state;
    }
};

TEST_F(ServiceManager, EnumerationTakesTwoCalls) {
    setUpServices(false, false);
    const ScHandle m = scm().openManager(svc::ManagerEnumerate);
    ASSERT_NE(m, 0u);
    std::vector<ServiceRecord> records;
    uint32_t needed = 0, resume = 0;
    EXPECT_FALSE(scm().enumerate(m, svc::TypeWin32, svc::StateAll, 0, records, needed, resume));
    EXPECT_EQ(sys().lastError(), svcerr::MoreData);
    EXPECT_TRUE(records.empty());
    ASSERT_GT(needed, 0u);

    // Room counted in 32-bit records is enough for the 64-bit layout too.
    resume = 0;
    ASSERT_TRUE(scm().enumerate(m, svc::TypeWin32, svc::StateAll, (needed / svc::EnumRecordSize32 + 1) *
                                                                      svc::EnumRecordSize32,
                                records, needed, resume));
    bool found = false;
    for (const auto& r : records) {
        if (!iequals(r.serviceName, "WUAUSERV")) continue;
        found = true;
        EXPECT_EQ(r.status.currentState, svc::Stopped);
        EXPECT_FALSE(r.displayName.empty());
    }
    EXPECT_TRUE(found);
    EXPECT_TRUE(scm().close(m));
    EXPECT_FALSE(scm().close(m));
    EXPECT_EQ(sys().lastError(), svcerr::InvalidHandle);

    // The program's own query: names without regard to case, states exactly.
    EXPECT_TRUE(kpm::EnumUpdSystemServices("WUAUSERV", "stopped", ""));
    EXPECT_FALSE(kpm::EnumUpdSystemServices("wuauserv", "running", ""));
    EXPECT_FALSE(kpm::EnumUpdSystemServices("KPMNoSuchService", "stopped", ""));

    // Listing needs the enumerate right.
    const ScHandle connect = scm().openManager(svc::ManagerConnect);
    EXPECT_FALSE(scm().enumerate(connect, svc::TypeWin32, svc::StateAll, 0, records, needed, resume));
    EXPECT_EQ(sys().lastError(), svcerr::AccessDenied);
    scm().close(connect);
}

TEST_F(ServiceManager, TransitionsAndTheirRefusals) {
    setUpServices(false, false);
    constexpr uint32_t kStart = 0;  // StartServiceA; other numbers are ControlService codes
    struct Step {
        const char* service;
        uint32_t op;
        bool ok;
        uint32_t error;      // last error of a refusal
        uint32_t settlesAt;  // state expected afterwards; 0: not checked
    };
    const Step steps[] = {
        {"wuauserv", svc::ControlStop, false, svcerr::NotActive, svc::Stopped},
        {"wuauserv", svc::ControlPause, false, svcerr::NotActive, 0},
        {"wuauserv", svc::ControlContinue, false, svcerr::NotActive, 0},
        {"wuauserv", kStart, true, 0, svc::Running},
        {"wuauserv", kStart, false, svcerr::AlreadyRunning, 0},
        {"wuauserv", svc::ControlPause, false, svcerr::InvalidServiceControl, svc::Running},
        {"wuauserv", svc::ControlInterrogate, true, 0, 0},
        {"wuauserv", svc::ControlStop, true, 0, svc::Stopped},
        {"BITS", kStart, true, 0, svc::Running},
        {"BITS", svc::ControlContinue, true, 0, svc::Running},  // running already: nothing to do
        // Wine's BITS answers a pause but goes on running; a pausable
        // Windows service (and the simulated one) is paused then.
        {"BITS", svc::ControlPause, true, 0, 0},
        {"BITS", kStart, false, svcerr::AlreadyRunning, 0},
        {"BITS", svc::ControlContinue, true, 0, svc::Running},
        {"BITS", svc::ControlStop, true, 0, svc::Stopped},
        {"LanmanServer", kStart, false, svcerr::Disabled, svc::Stopped},
    };
    const ScHandle m = scm().openManager(svc::ManagerAllRights);
    ASSERT_NE(m, 0u);
    for (const auto& s : steps) {
        SCOPED_TRACE(std::string(s.service) + " " + std::to_string(s.op));
        const ScHandle h = scm().openService(m, s.service, svc::ServiceAllRights);
        ASSERT_NE(h, 0u);
        sys().setLastError(0);
        ServiceStatus status;
        const bool ok = s.op == kStart ? scm().start(h) : scm().control(h, s.op, status);
        EXPECT_EQ(ok, s.ok);
        if (!s.ok) {
            EXPECT_EQ(sys().lastError(), s.error);
        }
        scm().close(h);
        if (s.settlesAt) {
            EXPECT_EQ(settledState(s.service, s.settlesAt), s.settlesAt);
        }
    }
    scm().close(m);
}

TEST_F(ServiceManager, HandlesAndAccessRights) {
    setUpServices(false, false);
    const ScHandle m = scm().openManager(svc::ManagerConnect);
    ASSERT_NE(m, 0u);
    EXPECT_EQ(scm().openService(m, "KPMNoSuchService", svc::ServiceStop), 0u);
    EXPECT_EQ(sys().lastError(), svcerr::DoesNotExist);

    struct Case {
        uint32_t access, op;  // op 0: StartServiceA
        uint32_t error;
    };
    const Case cases[] = {
        {svc::ServiceStop, 0, svcerr::AccessDenied},
        {svc::ServiceStop, svc::ControlPause, svcerr::AccessDenied},
        {svc::ServicePauseContinue, svc::ControlStop, svcerr::AccessDenied},
        {svc::ServiceAllRights, 77, svcerr::InvalidParameter},  // no such control
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.access) + " " + std::to_string(c.op));
        // The name is found without regard to case.
        const ScHandle h = scm().openService(m, "WuAuServ", c.access);
        ASSERT_NE(h, 0u);
        ServiceStatus status;
        EXPECT_FALSE(c.op == 0 ? scm().start(h) : scm().control(h, c.op, status));
        EXPECT_EQ(sys().lastError(), c.error);
        scm().close(h);
    }
    // A manager handle is no service handle.
    ServiceStatus status;
    EXPECT_FALSE(scm().control(m, svc::ControlStop, status));
    EXPECT_EQ(sys().lastError(), svcerr::InvalidHandle);
    scm().close(m);
    EXPECT_EQ(stateOf("wuauserv"), svc::Stopped);
}

}  // namespace

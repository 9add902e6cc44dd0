#include "driver/error_trap.h"

#include <new>

#include "driver/run_state.h"
#include "log/w3c_log.h"
#include "platform/host.h"

namespace kpm {

ErrInfo errFrom(const std::exception& e) {
    ErrInfo info;
    info.lastDllError = platform::sys().lastError();
    if (auto com = dynamic_cast<const platform::ComError*>(&e)) {
        info.number = com->number();
        info.source = com->source();
        info.description = com->description();
    } else if (dynamic_cast<const std::bad_alloc*>(&e)) {
        info.number = 7;
        info.source = "KPMDwld";
        info.description = "Out of memory";
    } else {
        info.number = platform::err::InvalidProcedureCall;
        info.source = "KPMDwld";
        info.description = e.what();
    }
    return info;
}

void logTrap(const std::string& module, const std::string& proc, const std::string& message,
             const ErrInfo& e) {
    WriteW3CLog(module, proc, "ERROR", message, std::to_string(e.number), e.description,
                std::to_string(e.lastDllError));
}

void appendErrorTrail(const std::string& proc, const ErrInfo& e) {
    runState.ErrorTrail += " " + proc + " : " + std::to_string(e.lastDllError) + " : " +
                           std::to_string(e.number);
}

}  // namespace kpm

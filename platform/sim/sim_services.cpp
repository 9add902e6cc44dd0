#include "platform/sim/sim_services.h"

#include <array>
#include <charconv>
#include <fstream>
#include <sstream>

#include "platform/automation.h"
#include "platform/sim/sim_files.h"
#include "platform/sim/sim_ini.h"
#include "platform/sim/sim_machine.h"
#include "platform/sim/sim_state.h"

namespace platform::sim {

namespace {

constexpr std::array<const char*, 8> kStateWords = {"", "stopped", "startpend", "stoppend", "running",
                                                    "contpend", "pausepend", "paused"};

// Rights a caller of this machine is given; MAXIMUM_ALLOWED asks for all of them.
constexpr uint32_t kManagerAll = 0xF003F, kManagerUser = 0x20015;  // user: connect, enumerate, lock status
constexpr uint32_t kServiceAll = 0xF01FF, kServiceUser = 0x2018D;  // user: query, interrogate, user controls
constexpr uint32_t kMaximumAllowed = 0x02000000;
constexpr uint32_t kGenericRead = 0x80000000, kGenericWrite = 0x40000000, kGenericExecute = 0x20000000,
                   kGenericAll = 0x10000000;
constexpr uint32_t kUserDefinedControl = 0x0100;
constexpr uint32_t kWin32ShareProcess = 0x20;

// The generic rights in terms of the object's own (winsvc.h's mapping).
uint32_t mapGeneric(uint32_t access, bool manager) {
    uint32_t out = access & 0x00FFFFFF;
    if (access & kGenericRead) out |= manager ? 0x20014 : 0x2008D;
    if (access & kGenericWrite) out |= manager ? 0x20022 : 0x20002;
    if (access & kGenericExecute) out |= manager ? 0x20009 : 0x20170;
    if (access & kGenericAll) out |= manager ? kManagerAll : kServiceAll;
    return out & ~kMaximumAllowed;
}

// The value of a [Services] line without an inline "; comment".
std::string_view withoutComment(std::string_view v) {
    return trimBlanks(v.substr(0, v.find(';')));
}

std::string readText(const std::filesystem::path& p) {
    std::ifstream in(p, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

void parseServiceValue(SimService& s, std::string_view value, const std::string& where) {
    auto bad = [&](const std::string& why) { throw MachineError(where + ": " + why); };
    size_t item = 0;
    while (!value.empty()) {
        size_t comma = value.find(',');
        std::string_view part = trimBlanks(value.substr(0, comma));
        value = comma == std::string_view::npos ? std::string_view{} : value.substr(comma + 1);
        if (item++ == 0) {
            size_t i = 1;
            while (i < kStateWords.size() && !iequals(part, kStateWords[i])) ++i;
            if (i == kStateWords.size())
                bad("the state must be stopped, startpend, stoppend, running, contpend, pausepend or paused");
            s.state = static_cast<uint32_t>(i);
            continue;
        }
        size_t eq = part.find('=');
        std::string_view key = trimBlanks(part.substr(0, eq));
        std::string_view arg = eq == std::string_view::npos ? std::string_view{} : trimBlanks(part.substr(eq + 1));
        if (iequals(key, "failstarts")) {
            auto [p, ec] = std::from_chars(arg.data(), arg.data() + arg.size(), s.failStarts);
            if (arg.empty() || ec != std::errc() || p != arg.data() + arg.size())
                bad("failstarts= must be a whole number");
        } else if (iequals(key, "refuse")) {
            std::string words(arg);
            for (char& c : words)
                if (c == '+') c = ' ';
            std::istringstream in(words);
            for (std::string w; in >> w;) {
                if (iequals(w, "stop")) s.refuseStop = true;
                else if (iequals(w, "pause") || iequals(w, "continue")) s.refusePause = true;
                else bad("refuse= takes stop and pause");
            }
        } else {
            bad("unknown option \"" + std::string(part) + "\" (failstarts=N, refuse=stop pause)");
        }
    }
    if (item == 0) bad("a state is required");
}

}  // namespace

void parseServices(const std::string& text, std::vector<SimService>& services, ManagerAccess& access) {
    services.clear();
    access = ManagerAccess::All;
    bool sectionSeen = false, accessSeen = false;
    std::string section;
    size_t number = 0;
    for (const IniLine& l : scanIni(text)) {
        ++number;
        if (l.kind == IniLine::Kind::Section) {
            section = l.name;
            sectionSeen = sectionSeen || iequals(section, "Services");
            continue;
        }
        if (l.kind != IniLine::Kind::Key) continue;
        const std::string where = "machine.ini line " + std::to_string(number) + ": [" + section + "] " + l.name +
                                  "=" + l.value;
        if (iequals(section, "Services")) {
            if (l.name.empty() || l.name.find_first_of("\\/") != std::string::npos)
                throw MachineError(where + ": not a service name");
            bool repeated = false;
            for (const auto& s : services) repeated = repeated || iequals(s.name, l.name);
            if (repeated) continue;  // the first of a name counts
            SimService s;
            s.name = l.name;
            parseServiceValue(s, withoutComment(l.value), where);
            services.push_back(s);
        } else if (iequals(section, "ServiceManager") && iequals(l.name, "Access") && !accessSeen) {
            accessSeen = true;
            std::string_view v = unquote(withoutComment(l.value));
            if (iequals(v, "all")) access = ManagerAccess::All;
            else if (iequals(v, "user")) access = ManagerAccess::User;
            else if (iequals(v, "none")) access = ManagerAccess::None;
            else throw MachineError(where + ": must be all, user or none");
        }
    }
    if (!sectionSeen) {
        SimService wu;
        wu.name = "wuauserv";
        services.push_back(wu);
    }
}

std::string serviceValueText(const SimService& s) {
    std::string v = kStateWords[s.state];
    if (s.failStarts) v += ", failstarts=" + std::to_string(s.failStarts);
    if (s.refuseStop || s.refusePause)
        v += std::string(", refuse=") + (s.refuseStop ? "stop" : "") + (s.refuseStop && s.refusePause ? " " : "") +
             (s.refusePause ? "pause" : "");
    return v;
}

SimServices::SimServices(MachineState& state, Registry& registry) : state_(state), registry_(registry) {
    parseServices(readText(state_.folder / "machine.ini"), services_, access_);
}

bool SimServices::fail(uint32_t error) {
    state_.lastError = error;
    return false;
}

ScHandle SimServices::noHandle(uint32_t error) {
    state_.lastError = error;
    return 0;
}

SimServices::Handle* SimServices::find(ScHandle h, bool manager) {
    auto it = handles_.find(h);
    return it == handles_.end() || it->second.isManager != manager ? nullptr : &it->second;
}

ScHandle SimServices::openManager(uint32_t access) {
    const uint32_t allowed = access_ == ManagerAccess::All ? kManagerAll
                             : access_ == ManagerAccess::User ? kManagerUser
                                                              : 0;
    uint32_t wanted = mapGeneric(access, true) | svc::ManagerConnect;
    if (access & kMaximumAllowed) wanted |= allowed;
    if (wanted & ~allowed) return noHandle(svcerr::AccessDenied);
    ScHandle h = next_ += 8;
    handles_[h] = Handle{true, 0, wanted};
    return h;
}

ScHandle SimServices::openService(ScHandle manager, std::string_view name, uint32_t access) {
    if (!find(manager, true)) return noHandle(svcerr::InvalidHandle);
    if (name.empty() || name.find_first_of("\\/") != std::string_view::npos) return noHandle(svcerr::InvalidName);
    size_t i = 0;
    while (i < services_.size() && !iequals(services_[i].name, name)) ++i;
    if (i == services_.size()) return noHandle(svcerr::DoesNotExist);
    const uint32_t allowed = access_ == ManagerAccess::All ? kServiceAll : kServiceUser;
    uint32_t wanted = mapGeneric(access, false);
    if (access & kMaximumAllowed) wanted |= allowed;
    if (wanted & ~allowed) return noHandle(svcerr::AccessDenied);
    ScHandle h = next_ += 8;
    handles_[h] = Handle{false, i, wanted};
    return h;
}

ServiceStatus SimServices::statusOf(const SimService& s) const {
    ServiceStatus st;
    st.serviceType = kWin32ShareProcess;
    st.currentState = s.state;
    const bool active = s.state == svc::Running || s.state == svc::Paused || s.state == svc::ContinuePending ||
                        s.state == svc::PausePending;
    if (active)
        st.controlsAccepted = (s.refuseStop ? 0 : svc::AcceptStop) | (s.refusePause ? 0 : svc::AcceptPauseContinue);
    return st;
}

bool SimServices::control(ScHandle service, uint32_t control, ServiceStatus& status) {
    Handle* h = find(service, false);
    if (!h) return fail(svcerr::InvalidHandle);
    uint32_t right = 0;
    switch (control) {
    case svc::ControlStop: right = svc::ServiceStop; break;
    case svc::ControlPause:
    case svc::ControlContinue: right = svc::ServicePauseContinue; break;
    case svc::ControlInterrogate: right = svc::ServiceInterrogate; break;
    default:
        if (control < 128 || control > 255) return fail(svcerr::InvalidParameter);
        right = kUserDefinedControl;
    }
    if (!(h->granted & right)) return fail(svcerr::AccessDenied);

    const size_t index = h->service;
    const SimService& s = services_[index];
    status = statusOf(s);
    if (s.state == svc::Stopped) return fail(svcerr::NotActive);
    if (s.state == svc::StartPending || s.state == svc::StopPending) return fail(svcerr::CannotAcceptControl);
    uint32_t next = s.state;
    switch (control) {
    case svc::ControlStop:
        if (s.refuseStop) return fail(svcerr::InvalidServiceControl);
        next = svc::Stopped;
        break;
    case svc::ControlPause:
    case svc::ControlContinue:
        if (s.refusePause) return fail(svcerr::InvalidServiceControl);
        // A paused service takes another pause, a running one a continue, as a no-op.
        next = control == svc::ControlPause ? svc::Paused : svc::Running;
        break;
    case svc::ControlInterrogate: break;
    default: return fail(svcerr::InvalidServiceControl);  // these services define no controls of their own
    }
    if (next != s.state && !commit(index, next, s.failStarts)) return false;
    status = statusOf(services_[index]);
    return true;
}

bool SimServices::start(ScHandle service) {
    Handle* h = find(service, false);
    if (!h) return fail(svcerr::InvalidHandle);
    if (!(h->granted & svc::ServiceStart)) return fail(svcerr::AccessDenied);
    const size_t index = h->service;
    const SimService& s = services_[index];
    if (startType(s) == 4) return fail(svcerr::Disabled);
    if (s.state != svc::Stopped) return fail(svcerr::AlreadyRunning);
    if (s.failStarts > 0) {
        if (!commit(index, s.state, s.failStarts - 1)) return false;
        return fail(svcerr::RequestTimeout);
    }
    return commit(index, svc::Running, 0);
}

bool SimServices::enumerate(ScHandle manager, uint32_t serviceType, uint32_t serviceState, uint32_t bufferBytes,
                            std::vector<ServiceRecord>& records, uint32_t& bytesNeeded, uint32_t& resumeHandle) {
    records.clear();
    bytesNeeded = 0;
    Handle* h = find(manager, true);
    if (!h) return fail(svcerr::InvalidHandle);
    if (!(h->granted & svc::ManagerEnumerate)) return fail(svcerr::AccessDenied);
    if (serviceState < svc::StateActive || serviceState > svc::StateAll) return fail(svcerr::InvalidParameter);

    uint32_t used = 0;
    for (size_t i = resumeHandle; i < services_.size(); ++i) {
        const SimService& s = services_[i];
        const bool active = s.state != svc::Stopped;
        if (!(serviceType & svc::TypeWin32)) continue;
        if (!(serviceState & (active ? svc::StateActive : svc::StateInactive))) continue;
        ServiceRecord r{s.name, displayName(s), statusOf(s)};
        // A 32-bit caller's record, then the two strings with their zeros.
        const uint32_t size = svc::EnumRecordSize32 + static_cast<uint32_t>(r.serviceName.size() + 1 +
                                                                           r.displayName.size() + 1);
        if (bytesNeeded || used + size > bufferBytes) {
            if (!bytesNeeded) resumeHandle = static_cast<uint32_t>(i);
            bytesNeeded += size;
            continue;
        }
        used += size;
        records.push_back(std::move(r));
    }
    if (bytesNeeded) return fail(svcerr::MoreData);
    resumeHandle = 0;
    return true;
}

bool SimServices::close(ScHandle handle) {
    if (!handles_.erase(handle)) return fail(svcerr::InvalidHandle);
    return true;
}

uint32_t SimServices::startType(const SimService& s) {
    const uint32_t saved = state_.lastError;
    uint32_t type = 3;  // demand start when the key says nothing
    std::unique_ptr<RegKey> key;
    RegValue v;
    if (registry_.openKey(Hive::LocalMachine, "SYSTEM\\CurrentControlSet\\Services\\" + s.name, regaccess::Read,
                          RegView::Default, key) == regerr::Success &&
        key->queryValue("Start", v) == regerr::Success && v.type == regtype::Dword && v.data.size() >= 4)
        type = v.data[0] | v.data[1] << 8 | v.data[2] << 16 | uint32_t(v.data[3]) << 24;
    state_.lastError = saved;
    return type;
}

std::string SimServices::displayName(const SimService& s) {
    const uint32_t saved = state_.lastError;
    std::string name = s.name;
    std::unique_ptr<RegKey> key;
    RegValue v;
    if (registry_.openKey(Hive::LocalMachine, "SYSTEM\\CurrentControlSet\\Services\\" + s.name, regaccess::Read,
                          RegView::Default, key) == regerr::Success &&
        key->queryValue("DisplayName", v) == regerr::Success && v.type == regtype::String) {
        std::string text(v.data.begin(), v.data.end());
        text = text.substr(0, text.find('\0'));
        if (!text.empty()) name = text;
    }
    state_.lastError = saved;
    return name;
}

bool SimServices::commit(size_t index, uint32_t newState, uint32_t failStarts) {
    SimService changed = services_[index];
    changed.state = newState;
    changed.failStarts = failStarts;

    // The service's line is rewritten in place (its key as written, a
    // trailing comment kept); a machine without the section gets one.
    const auto file = state_.folder / "machine.ini";
    std::string text = readText(file);
    const size_t firstLf = text.find('\n');
    const std::string eol = firstLf != std::string::npos && firstLf > 0 && text[firstLf - 1] != '\r' ? "\n" : "\r\n";
    std::string section;
    bool replaced = false;
    for (const IniLine& l : scanIni(text)) {
        if (l.kind == IniLine::Kind::Section) {
            section = l.name;
        } else if (l.kind == IniLine::Kind::Key && iequals(section, "Services") && iequals(l.name, changed.name)) {
            std::string raw = text.substr(l.begin, l.end - l.begin);
            const size_t eq = raw.find('=');
            const size_t semi = raw.find(';', eq);
            std::string line = raw.substr(0, eq + 1) + serviceValueText(changed) +
                               (semi == std::string::npos ? "" : " " + raw.substr(semi));
            text.replace(l.begin, l.end - l.begin, line);
            replaced = true;
            break;
        }
    }
    if (!replaced) {
        if (!text.empty() && text.back() != '\n') text += eol;
        text += "[Services]" + eol + changed.name + "=" + serviceValueText(changed) + eol;
    }
    if (!replaceWhole(file, text)) return fail(win32::WriteFault);
    services_[index] = changed;
    return true;
}

}  // namespace platform::sim

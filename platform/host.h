// The one door to the operating system. The executable installs a binding
// (the real Windows one, or a simulated machine) before the pass starts.
#pragma once

#include "platform/automation.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/internet.h"
#include "platform/maker.h"
#include "platform/profile.h"
#include "platform/registry.h"
#include "platform/services.h"
#include "platform/system.h"

namespace platform {

class Host {
public:
    virtual ~Host() = default;
    virtual Registry& registry() = 0;
    virtual Profile& profile() = 0;
    virtual FileSystem& files() = 0;
    virtual Clock& clock() = 0;
    virtual System& system() = 0;
    virtual Automation& automation() = 0;
    virtual MakerLibraries& maker() = 0;
    virtual Internet& internet() = 0;
    virtual Services& services() = 0;
};

// The installed binding. Calling it before setHost is a programming error.
Host& host();
void setHost(Host* h);
// False until a binding is installed (code that may also run without one).
bool hasHost();

// Shorthands used throughout the core.
inline Registry& registry() { return host().registry(); }
inline Profile& profile() { return host().profile(); }
inline FileSystem& files() { return host().files(); }
inline Clock& clock() { return host().clock(); }
inline System& sys() { return host().system(); }
inline Automation& automation() { return host().automation(); }
inline MakerLibraries& maker() { return host().maker(); }
inline Internet& internet() { return host().internet(); }
inline Services& services() { return host().services(); }

// Ends the pass through the installed binding; never returns.
[[noreturn]] void endProcess(int exitCode);

}  // namespace platform

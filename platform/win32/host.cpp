#include "platform/win32/win32_host.h"

#include "platform/win32/bindings.h"
#include "platform/win32/handles.h"

namespace platform::win32 {

struct Win32Host::Parts {
    std::unique_ptr<Registry> registry = newRegistry();
    std::unique_ptr<Profile> profile = newProfile();
    std::unique_ptr<FileSystem> files = newFileSystem();
    std::unique_ptr<Clock> clock = newClock();
    std::unique_ptr<System> system = newSystem();
    std::unique_ptr<Automation> automation = newAutomation();
    std::unique_ptr<MakerLibraries> maker;
    std::unique_ptr<Internet> internet = newInternet();
    std::unique_ptr<Services> services = newServices();
};

Win32Host::Win32Host(const HostOptions& options) : parts_(std::make_unique<Parts>()) {
    parts_->maker = newMakerLibraries(options);
}

Win32Host::~Win32Host() = default;

Registry& Win32Host::registry() { return *parts_->registry; }
Profile& Win32Host::profile() { return *parts_->profile; }
FileSystem& Win32Host::files() { return *parts_->files; }
Clock& Win32Host::clock() { return *parts_->clock; }
System& Win32Host::system() { return *parts_->system; }
Automation& Win32Host::automation() { return *parts_->automation; }
MakerLibraries& Win32Host::maker() { return *parts_->maker; }
Internet& Win32Host::internet() { return *parts_->internet; }
Services& Win32Host::services() { return *parts_->services; }

HMODULE thisModule() {
    HMODULE m = nullptr;
    GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                       reinterpret_cast<LPCSTR>(&thisModule), &m);
    return m;
}

}  // namespace platform::win32

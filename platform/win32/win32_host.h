// The real Windows binding of the platform interfaces: the Win32 API, COM
// automation and the maker's DLLs of the computer the program runs on.
#pragma once

#include <memory>
#include <string>

#include "platform/host.h"

namespace platform::win32 {

struct HostOptions {
    // File name of the maker's cipher library, looked for in the executable's
    // folder and then along the system's DLL search order.
    std::string cipherLibrary = "KEncDec.dll";
    // File names of the maker's download and checksum libraries, looked for
    // the same way. Errors name the libraries by their own names whatever file
    // is asked for (tests point these at files that do not exist).
    std::string downloadLibrary = "KDowFile.dll";
    std::string checksumLibrary = "KGnMD5.dll";
};

class Win32Host final : public Host {
public:
    explicit Win32Host(const HostOptions& options = {});
    ~Win32Host() override;
    Win32Host(const Win32Host&) = delete;
    Win32Host& operator=(const Win32Host&) = delete;

    Registry& registry() override;
    Profile& profile() override;
    FileSystem& files() override;
    Clock& clock() override;
    System& system() override;
    Automation& automation() override;
    MakerLibraries& maker() override;
    Internet& internet() override;
    Services& services() override;

private:
    struct Parts;
    std::unique_ptr<Parts> parts_;
};

}  // namespace platform::win32

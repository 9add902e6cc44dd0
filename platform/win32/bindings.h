// The pieces of the Windows binding, one per platform interface (private to
// platform/win32).
#pragma once

#include <memory>
#include <string>

#include "platform/host.h"

namespace platform::win32 {

struct HostOptions;

std::unique_ptr<Registry> newRegistry();
std::unique_ptr<Profile> newProfile();
std::unique_ptr<FileSystem> newFileSystem();
std::unique_ptr<Clock> newClock();
std::unique_ptr<System> newSystem();
std::unique_ptr<Automation> newAutomation();
std::unique_ptr<MakerLibraries> newMakerLibraries(const HostOptions& options);
std::unique_ptr<Internet> newInternet();
std::unique_ptr<Services> newServices();

}  // namespace platform::win32

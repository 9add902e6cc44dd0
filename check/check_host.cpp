#include "check/check_host.h"

#include "platform/errors.h"

namespace kpm::check {

CheckHost::CheckHost(platform::Host& machine, const platform::DateTime& now)
    : machine_(machine), clock_(machine.clock(), now), profile_(machine.profile()),
      files_(machine.files(), profile_.refused) {}

void CheckHost::setNow(const platform::DateTime& now) { clock_.set(now); }

const std::vector<std::string>& CheckHost::refusedWrites() const { return profile_.refused; }

platform::Profile& CheckHost::profile() { return profile_; }

platform::Clock& CheckHost::clock() { return clock_; }

platform::FileSystem& CheckHost::files() { return files_; }

void CheckHost::ReadOnlyFiles::refuse(const char* what, std::string_view path) {
    refused_.push_back(std::string(what) + " " + std::string(path));
    throw platform::ComError(70, "kpmdwld-check", "Permission denied: the checker changes nothing");
}

}  // namespace kpm::check

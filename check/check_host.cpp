#include "check/check_host.h"

namespace kpm::check {

CheckHost::CheckHost(platform::Host& machine, const platform::DateTime& now)
    : machine_(machine), clock_(machine.clock(), now), profile_(machine.profile()) {}

void CheckHost::setNow(const platform::DateTime& now) { clock_.set(now); }

const std::vector<std::string>& CheckHost::refusedWrites() const { return profile_.refused; }

platform::Profile& CheckHost::profile() { return profile_; }

platform::Clock& CheckHost::clock() { return clock_; }

}  // namespace kpm::check

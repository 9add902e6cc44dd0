#include "platform/sim/sim_automation.h"

#include "platform/errors.h"
#include "platform/sim/sim_config.h"

namespace platform::sim {

namespace {

void checkState(const MachineConfig& config, const std::string& name) {
    switch (config.classState(name)) {
    case ClassState::Missing: throw makeError(err::CannotCreateObject);
    case ClassState::BadModule: throw makeError(err::ModuleNotFound);
    case ClassState::Normal: break;
    }
}

}  // namespace

SimAutomation::SimAutomation(const MachineConfig& config) : config_(config) {}

void SimAutomation::registerClass(std::string progId, Factory factory) {
    for (auto& c : classes_)
        if (iequals(c.first, progId)) {
            c.second = std::move(factory);
            return;
        }
    classes_.emplace_back(std::move(progId), std::move(factory));
}

void SimAutomation::registerMoniker(std::string prefix, Factory factory) {
    monikers_.emplace_back(std::move(prefix), std::move(factory));
}

Object SimAutomation::createObject(std::string_view progId) {
    for (const auto& c : classes_)
        if (iequals(c.first, progId)) {
            checkState(config_, c.first);
            return c.second();
        }
    throw makeError(err::CannotCreateObject);
}

Object SimAutomation::getObject(std::string_view moniker) {
    for (const auto& m : monikers_)
        if (moniker.size() >= m.first.size() && iequals(moniker.substr(0, m.first.size()), m.first)) {
            std::string name = m.first;
            if (!name.empty() && name.back() == ':') name.pop_back();
            checkState(config_, name);
            return m.second();
        }
    throw makeError(err::MonikerNotFound);
}

}  // namespace platform::sim

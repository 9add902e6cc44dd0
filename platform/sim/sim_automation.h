// Late-bound objects on the simulated machine: a table of ProgIDs and
// monikers with their factories. machine.ini [Classes] can mark a class as
// not registered ("missing") or as registered with a module that does not
// load ("badmodule").
#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "platform/automation.h"

namespace platform::sim {

struct MachineConfig;
class SimMachine;

class SimAutomation : public Automation {
public:
    using Factory = std::function<Object()>;

    explicit SimAutomation(const MachineConfig& config);

    // Makes CreateObject(progId) work; a later registration of the same
    // ProgID replaces the earlier one.
    void registerClass(std::string progId, Factory factory);
    // Makes GetObject work for every moniker that starts with prefix
    // ("winmgmts:"). [Classes] names it without the colon.
    void registerMoniker(std::string prefix, Factory factory);

    // 429 when not registered or marked missing, 0x8007007E for badmodule.
    Object createObject(std::string_view progId) override;
    // 429 for a moniker marked missing, 0x800401E4 for an unknown one.
    Object getObject(std::string_view moniker) override;

private:
    const MachineConfig& config_;
    std::vector<std::pair<std::string, Factory>> classes_;
    std::vector<std::pair<std::string, Factory>> monikers_;
};

// Fills the table with the machine's classes (sim_classes.cpp).
void registerStandardClasses(SimMachine& machine, SimAutomation& automation);

}  // namespace platform::sim

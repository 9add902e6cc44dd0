// Late-bound objects on the simulated machine: a table of ProgIDs and
// monikers with their factories.
//
// Two kinds of class, told apart by standins/served_classes.h:
//   - Windows' own classes (and anything not listed there as a maker's
//     class): always there; machine.ini [Classes] can mark one as not
//     registered ("missing", 429) or as registered with a module that does
//     not load ("badmodule", 0x8007007E);
//   - the maker's classes (a row with a DLL): created only as COM would find
//     them in the machine's registry: HKCR\<ProgID>\CLSID names the class
//     identifier (else 429), HKCR\CLSID\{...}\InprocServer32 its DLL (else
//     429), the DLL must be on the drive (else 0x8007007E) and be the stand-in
//     file that serves that identifier (else 0x80040111). registerComServer
//     is what "regsvr32 <dll>" does here.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/automation.h"

namespace platform {
class FileSystem;
class Registry;
}  // namespace platform

namespace platform::sim {

struct MachineState;
class SimMachine;

class SimAutomation : public Automation {
public:
    using Factory = std::function<Object()>;

    SimAutomation(MachineState& state, Registry& registry, FileSystem& files);

    // Gives a ProgID its factory; a later registration of the same ProgID
    // replaces the earlier one. For a maker's class this is what its DLL
    // creates; the registry still decides whether CreateObject reaches it.
    void registerClass(std::string progId, Factory factory);
    // Makes GetObject work for every moniker that starts with prefix
    // ("winmgmts:"). [Classes] names it without the colon.
    void registerMoniker(std::string prefix, Factory factory);
    // Makes createByClsid(clsid) work ("{...}", compared case-insensitively),
    // for a class the program creates by class identifier only.
    void registerClassId(std::string clsid, Factory factory);
    // Names the member that stands for the first method of interface `iid`:
    // callFirstMethod calls it late-bound with the text.
    void registerInterface(std::string iid, std::string firstMethod);

    Object createObject(std::string_view progId) override;
    // 429 for a moniker marked missing, 0x800401E4 for an unknown one.
    Object getObject(std::string_view moniker) override;
    // 429 when no class has that identifier.
    Object createByClsid(std::string_view clsid) override;
    // 430 for an interface no class registered.
    std::string callFirstMethod(const Object& object, std::string_view iid, const std::string& text) override;

private:
    const Factory* factoryOf(std::string_view progId) const;
    Object createRegistered(std::string_view progId);

    MachineState& state_;
    Registry& registry_;
    FileSystem& files_;
    std::vector<std::pair<std::string, Factory>> classes_;
    std::vector<std::pair<std::string, Factory>> monikers_;
    std::vector<std::pair<std::string, Factory>> classIds_;
    std::vector<std::pair<std::string, std::string>> interfaces_;
};

// "regsvr32 <dllPath>": when the file exists and its name is one of the
// maker's DLLs, writes the keys of every class that file serves into
// HKEY_CLASSES_ROOT (the ProgID with its CLSID, the CLSID with its
// InprocServer32 = dllPath as given). False, and nothing written, otherwise.
bool registerComServer(Registry& registry, FileSystem& files, std::string_view dllPath);

// Fills the table with the machine's classes (sim_classes.cpp).
void registerStandardClasses(SimMachine& machine, SimAutomation& automation);

}  // namespace platform::sim

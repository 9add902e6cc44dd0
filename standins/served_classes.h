// The COM classes the stand-ins serve, each with its fixed class identifier
// and, for the maker's components, the DLL file that serves it on a managed
// computer. One table for both machines: the simulated machine registers and
// creates the maker's classes by it (platform/sim/sim_classes.cpp), and the
// Windows stand-in server KPMStandins.dll (standins/com/server.cpp) answers
// for these identifiers and registers them.
//
// Adding a class:
//   - a class of Windows itself (or of the tests): a row with an empty DLL,
//     needed only when the Windows server serves it; on the simulated machine
//     it is always there (machine.ini [Classes] can take it away);
//   - a class of the maker's components: a row with its DLL file name; on
//     the simulated machine it can be created only while registry.reg
//     registers it and that DLL is on the drive, and "regsvr32 <dll>"
//     registers every class of that file name.
// Then one line for its factory in each machine's class list.
#pragma once

#include <string_view>

namespace standins {

struct ServedClass {
    std::string_view progId;
    std::string_view clsid;  // "{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}", as registered
    std::string_view dll;    // the maker's DLL that serves it; empty: not a maker's class
};

inline constexpr ServedClass kServedClasses[] = {
    {"KPMContract.Echo", "{A0CC808C-D468-47B3-BDE5-83CB9C00B534}", ""},
    {"Microsoft.Update.ServiceManager", "{EC61E934-8645-4582-96CE-4AC9AE032819}", ""},
    {"Microsoft.Update.Session", "{E1D472B8-D454-429F-A99A-02B1D3940A5B}", ""},
    {"Microsoft.Update.UpdateColl", "{F7000D97-B59A-466B-AC73-8177866F824A}", ""},
    {"Microsoft.Update.AgentInfo", "{942A0990-57CC-4777-89FD-C492BD911AB4}", ""},
    {"", "{650503CF-9108-4DDC-A2CE-6C2341E1C582}", ""},  // the agent's WebProxy: no ProgID
    {"kWbPost.WebPost", "{15C3520E-25F4-4BBD-85CB-C073B7EE3162}", "kWbPost.dll"},
    {"kDwnJob.JobDownload", "{5B7E2D41-9C3A-4F18-A62E-71D40B93C56F}", "kDwnJob.dll"},
    {"ChilkatZip2.Chilkatzip2", "{C2F84A17-3E6B-4D90-8B15-2A6CE9470DB3}", "Chilkatzip2.dll"},
};

// The row of a ProgID, or of a class identifier (braces required); both
// compared without regard to case. nullptr when there is none.
const ServedClass* findServedClass(std::string_view progId);
const ServedClass* findServedClassById(std::string_view clsid);

// True for a class that only a registered maker's DLL makes creatable.
inline bool isMakerClass(const ServedClass* c) { return c && !c->dll.empty(); }

// True when a DLL of this file name (no folder; any case) serves the class.
bool servesClass(std::string_view dllFileName, const ServedClass& c);
// True when the file name is one of the maker's DLLs of the table.
bool isMakerDll(std::string_view dllFileName);

}  // namespace standins

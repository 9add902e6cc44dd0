// machine.ini: the facts of the simulated machine other than its registry
// and files. docs/simulated-machine.md lists every key.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/datetime.h"
#include "platform/system.h"
#include "standins/network_map.h"

namespace platform::sim {

struct DriveSpace {
    uint64_t total = 0;
    uint64_t free = 0;
};

// What [Classes] says of one of Windows' own classes (or of the "winmgmts"
// moniker, or of the plain DLL "KEncDec"). The maker's COM classes are not
// named there: registry.reg says whether they are registered.
enum class ClassState { Normal, Missing, BadModule };

struct MachineConfig {
    std::string exePath;  // Windows path
    std::string computerName = "SIMPC";
    std::optional<DateTime> now;
    bool is64BitOS = true;
    std::string systemDirectory = "C:\\WINDOWS\\system32";

    std::string shortDate = "M/d/yyyy";
    std::string longTime = "h:mm:ss tt";
    std::string amDesignator = "AM";
    std::string pmDesignator = "PM";
    uint32_t codePage = 1252;  // [Locale] CodePage: the ANSI code page

    OsVersion os;
    std::string osCaption = "Microsoft Windows 7 Professional";
    uint32_t wmiServicePackMajor = 1;

    std::vector<std::string> processes;   // captions, in file order
    std::map<char, DriveSpace> drives;    // drive letter (upper case) -> space
    std::map<std::string, ClassState> classes;  // key: ProgID in lower case

    // [Hives]: hive files another process holds open (Windows path in lower
    // case): loading one fails with a sharing violation.
    std::vector<std::string> lockedHives;
    // [DeniedKeys]: keys whose ACL shuts the program out ("HKLM\\PATH" as
    // stored, Wow6432Node spelt, in lower case): opening one fails with 5.
    std::vector<std::string> deniedKeys;
    standins::NetworkMap network;  // [Network]: where URL hosts go
    unsigned pollWaitMs = 1000;    // [Downloads] PollWaitMs
    unsigned stallSeconds = 30;    // [Downloads] StallSeconds
    // [Certificates] Roots: the PEM file of the roots HTTPS servers must chain
    // to (host path); empty: no server is trusted.
    std::filesystem::path trustedRoots;

    ClassState classState(const std::string& progId) const;
};

// Reads <folder>/machine.ini; throws MachineError naming the file and line.
// `sitePorts`: the loopback ports of the local sites by name; a [Network]
// line "HOST=site:NAME" sends HOST there, and makes it unreachable when no
// such site runs.
MachineConfig loadMachineConfig(const std::filesystem::path& iniFile,
                                const std::map<std::string, int>& sitePorts = {});

}  // namespace platform::sim

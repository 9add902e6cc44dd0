// KPMDwld-check.exe [--now YYYY-MM-DDTHH:MM:SS] [--json]
// Beside KPMDwld.exe: what its next pass would do on this computer, and why,
// read through the same Windows binding and changing nothing (docs/checker.md).
#include <fcntl.h>
#include <io.h>

#include <cstdio>

#include "check/command_line.h"
#include "platform/win32/win32_host.h"

int main(int argc, char** argv) {
    // The same bytes as the Linux build: no CR added to each line.
    _setmode(_fileno(stdout), _O_BINARY);
    kpm::check::CommandLine line;
    if (!kpm::check::ParseCommandLine(argc, argv, false, line)) return 2;
    platform::win32::Win32Host host;
    return kpm::check::RunCheckCommand(host, line);
}

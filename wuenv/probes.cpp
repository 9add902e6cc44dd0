// The environment probes. For now RegisteDLL only makes sure the maker's
// download library is there; the component registration checks and the
// prerequisites (operating system, agent version, connectivity) come later.
#include "wuenv/probes.h"

#include <exception>

#include "driver/error_trap.h"
#include "log/w3c_log.h"
#include "mspatch/download_channels.h"
#include "platform/host.h"
#include "support/support_files.h"

namespace kpm {

void RegisteDLL() {
    try {
        platform::clock().sleep(1000);
        if (!platform::files().fileExists(PatchManagementFolder() + "KDowFile.dll")) subDownloadAllFiles();
        WriteW3CLog("ModRegister", "RegisteDLL", "INFO", "DLL check completed Successfully.");
    } catch (const std::exception& e) {
        ErrInfo err = errFrom(e);
        logTrap("ModRegister", "RegisteDLL", "In RegisteDLL.", err);
        appendErrorTrail("RegisteDLL", err);
    }
}

}  // namespace kpm

// RegisteDLL: the COM components the pass needs, and the maker's download
// library. The other probes live beside it (os_probe, connectivity, disk_space).
#include "wuenv/probes.h"

#include <cstdint>
#include <exception>
#include <string>

#include "config/agent_settings.h"
#include "config/ini.h"
#include "driver/error_trap.h"
#include "driver/main.h"
#include "driver/run_state.h"
#include "log/w3c_log.h"
#include "mspatch/download_channels.h"
#include "platform/host.h"
#include "support/support_files.h"

namespace kpm {

namespace {

// The components the pass needs, in the order they are checked.
struct Component {
    const char* progId;
    const char* dll;
    bool inSystemFolder;  // else in InstallPath
};
constexpr Component kComponents[] = {
    {"Scripting.FileSystemObject", "scrrun.dll", true},
    {"Microsoft.Update.Session", "wuapi.dll", true},
    {"kWbPost.WebPost", "kWbPost.dll", false},
    {"kDwnJob.JobDownload", "kDwnJob.dll", false},
    {"ChilkatZip2.Chilkatzip2", "Chilkatzip2.dll", false},
};

// Creates and releases a test object: 0 when it was created, else the error number.
int32_t creationError(const char* progId) {
    try {
        platform::automation().createObject(progId).release();
        return 0;
    } catch (const std::exception& e) {
        return errFrom(e).number;
    }
}

// Only "cannot create object" and "module not found" mean the class is not
// registered; any other failure belongs to a component that is there.
bool isMissing(int32_t number) {
    return number == platform::err::CannotCreateObject || number == platform::err::ModuleNotFound;
}

}  // namespace

void RegisteDLL() {
    try {
        std::string system = platform::sys().systemDirectory();
        if (system.size() >= 200) system.clear();  // GetSystemDirectoryA's buffer of 200 does not take it
        const size_t cut = system.rfind('\\');
        const std::string windows = cut == std::string::npos ? std::string() : system.substr(0, cut);
        if (windows.empty() || !platform::files().folderExists(windows)) {
            WriteW3CLog("ModRegister", "RegisteDLL", "ERROR", "Could not retrieve Windows path.");
            runState.ErrorTrail += " Could Not retrieve Windows path";
            CloseAll();
        }
        std::string systemFolder = Trim(windows);
        if (systemFolder.empty() || systemFolder.back() != '\\') systemFolder += "\\System32\\";

        for (const Component& c : kComponents) {
            const std::string path = (c.inSystemFolder ? systemFolder : agentSettings.InstallPath) + c.dll;
            if (!isMissing(creationError(c.progId))) continue;
            platform::sys().startHidden("regsvr32.exe -s \"" + path + "\"");
            platform::clock().sleep(1000);
            if (creationError(c.progId) == 0) continue;
            runState.ErrorTrail += " Could Not Register" + path;
            WriteW3CLog("ModRegister", "RegisteDLL", "ERROR", "Could Not Register.", path);
            CloseAll();
        }

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

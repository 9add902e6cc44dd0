// The installers an earlier accepted list verified, kept when this pass has
// no list to assess with.
#include <exception>

#include "config/ini.h"
#include "driver/error_trap.h"
#include "driver/run_state.h"
#include "log/w3c_log.h"
#include "mspatch/download_channels.h"
#include "platform/host.h"
#include "tppatch/catalogue.h"
#include "tppatch/file_download.h"
#include "tppatch/installer_download.h"

namespace kpm {

namespace {

std::string attr(platform::Object& node, const char* name) {
    platform::Variant v = node.call("getAttribute", name);
    return v.isNull() || v.isEmpty() ? std::string() : v.toString();
}

// One <update> of the record, as the file it names must be; nothing when the
// record does not say the file was verified or does not read as a record.
bool expectedOf(platform::Object& update, TPExpectedFile& e) {
    const std::string state = attr(update, "state");
    if (state != "downloaded" && state != "present") return false;
    e.name = attr(update, "file");
    e.md5 = LCase(attr(update, "md5"));
    e.sha256 = LCase(attr(update, "sha256"));
    const std::string size = attr(update, "size");
    if (e.name.empty() || !IsInstallerName(e.name) || e.md5.size() != 32 || size.empty() || size.size() > 19 ||
        size.find_first_not_of("0123456789") != std::string::npos)
        return false;
    e.size = std::stoull(size);
    return true;
}

}  // namespace

void KeepInstallersAlreadyThere() {
    const char* module = "ModTPMAssess";
    const char* proc = "KeepInstallersAlreadyThere";
    const std::string folder = InstallerFolder(), record = folder + "\\TPUpdates.xml";
    try {
        if (!platform::files().fileExists(record)) return;
        platform::Object doc = platform::automation().createObject("MSXML2.DOMDocument");
        doc.put("async", false);
        if (!doc.call("Load", record).toBool()) {
            WriteW3CLog(module, proc, "ERROR", "Update record could not be read: no installer is kept", record);
            return;
        }
        subWriteDownloadURL(record);
        for (const auto& item : doc.call("selectNodes", "/tpupdates/update").toObject().items()) {
            platform::Object update = item.toObject();
            TPExpectedFile e;
            if (!expectedOf(update, e)) continue;
            const std::string path = folder + "\\" + e.name;
            if (!platform::files().fileExists(path)) continue;
            const std::string arrived = fncCompareInstaller(path, e);
            if (arrived.empty()) {
                subWriteDownloadURL(path);
                WriteW3CLog(module, proc, "INFO", "Installer kept: an earlier product list verified it", path);
            } else {
                WriteW3CLog(module, proc, "INFO", "Installer no longer matches its record: not kept", path, arrived);
            }
        }
    } catch (const std::exception& e) {
        ErrInfo err = errFrom(e);
        logTrap(module, proc, "In KeepInstallersAlreadyThere.", err);
        appendErrorTrail(proc, err);
    }
}

}  // namespace kpm

#include "tppatch/installer_download.h"

#include <cctype>
#include <exception>

#include "config/agent_settings.h"
#include "config/ini.h"
#include "driver/error_trap.h"
#include "driver/main.h"
#include "driver/run_state.h"
#include "log/w3c_log.h"
#include "mspatch/download_channels.h"
#include "mspatch/download_state.h"
#include "platform/host.h"
#include "schedule/schedule_settings.h"
#include "tppatch/file_download.h"
#include "wuenv/environment.h"
#include "wuenv/probes.h"

namespace kpm {

namespace {

constexpr const char* kModule = "modTPMDwn";
constexpr const char* kProc = "fncDownloadInstaller";

void log(const char* type, const std::string& message, const std::string& v1 = "", const std::string& v2 = "",
         const std::string& v3 = "") {
    WriteW3CLog(kModule, kProc, type, message, v1, v2, v3);
}

TPExpectedFile expectedOf(const Installer& i) {
    TPExpectedFile e;
    e.name = i.name;
    e.size = i.size;
    e.md5 = i.md5;
    e.sha256 = i.sha256;
    e.gatewayOnly = scheduleSettings.AlwaysDownloadViaGateway == "1";
    return e;
}

InstallerOutcome download(size_t index, const Product& p) {
    InstallerOutcome out;
    out.product = index;
    const Installer& i = p.update.installer;
    const TPExpectedFile expected = expectedOf(i);
    const std::string folder = InstallerFolder();
    const std::string target = folder + "\\" + i.name;

    if (platform::files().fileExists(target)) {
        const std::string arrived = fncCompareInstaller(target, expected);
        if (arrived.empty()) {
            log("INFO", "Installer already downloaded", target, p.update.id);
            subWriteDownloadURL(target);
            out.result = InstallerOutcome::Result::Present;
            out.path = target;
            return out;
        }
        log("INFO", "Installer in the folder does not match the product list: downloading it again", target,
            ExpectedText(expected), arrived);
    }
    // The floor holds after the installer too: one that would take the drive
    // under it is not started (a smaller one further down the list may be).
    const double sizeMB = static_cast<double>(i.size) / (1024.0 * 1024.0);
    if (!(environment.DriveFreeMB - sizeMB > 1536)) {
        log("INFO", "Download skipped: the installer would leave 1.5 GB or less free", i.name,
            std::to_string(i.size) + " bytes", "Avail Disk Space : " + environment.DriveFreeMBText);
        out.why = "skipped: the installer would leave 1.5 GB or less free";
        return out;
    }
    log("INFO", "Downloading the update's installer", p.update.id, i.name);
    const TPDownloadResult r = fncDownloadTPMFile(i.url, folder, &expected);
    if (!r.Success) {
        out.why = r.ErrorText1;
        return out;
    }
    out.result = InstallerOutcome::Result::Downloaded;
    out.path = r.FilePath;
    out.channel = r.Channel;
    return out;
}

// A product that could not be assessed whole keeps the installer an earlier
// pass verified: a user who was away tonight may need it tomorrow.
void keepVerified(const Product& p) {
    const std::string target = InstallerFolder() + "\\" + p.update.installer.name;
    if (!platform::files().fileExists(target) || !fncCompareInstaller(target, expectedOf(p.update.installer)).empty()) return;
    log("INFO", "Installer kept: the product could not be assessed for every user", target, p.update.id);
    subWriteDownloadURL(target);
}

}  // namespace

std::string InstallerFolder() { return ComponentsFolder() + "Appcomp"; }

std::vector<InstallerOutcome> DownloadInstallers(const Catalogue& catalogue, const std::vector<ProductFinding>& findings) {
    std::vector<InstallerOutcome> outcomes;
    bool lowDisk = false;
    for (const ProductFinding& f : findings) {
        if (f.state == ProductState::HiveUnreadable) resumeNext([&] { keepVerified(catalogue.products[f.product]); });
        if (f.state != ProductState::UpdateNeeded) continue;
        const Product& p = catalogue.products[f.product];
        InstallerOutcome out;
        out.product = f.product;
        if (!lowDisk && fncLowDiskSpace()) {
            lowDisk = true;
            log("INFO", "Download skipped due to the disk Space is less than 1.5 GB, Avail Disk Space : " +
                            environment.DriveFreeMBText);
        }
        if (lowDisk) {
            out.why = "skipped: 1.5 GB or less free on the drive";
        } else {
            try {
                out = download(f.product, p);
            } catch (const std::exception& e) {
                ErrInfo err = errFrom(e);
                logTrap(kModule, kProc, "In fncDownloadInstaller.", err);
                appendErrorTrail(kProc, err);
                out.why = "the download failed: " + err.description;
            }
        }
        const uint64_t size = p.update.installer.size;
        if (out.result == InstallerOutcome::Result::Present) {
            ++downloadCounters.AlreadyDownloadedCount;
            downloadCounters.AlreadyDownloadedBytes += static_cast<double>(size);
        } else if (out.result == InstallerOutcome::Result::Downloaded) {
            ++downloadCounters.CurrentDownloadedCount;
            downloadCounters.CurrentDownloadedBytes += static_cast<double>(size);
        }
        outcomes.push_back(std::move(out));
    }
    return outcomes;
}

}  // namespace kpm

#include "mspatch/patch_content.h"

#include <exception>

#include "config/ini.h"
#include "driver/error_trap.h"
#include "driver/run_state.h"
#include "log/w3c_log.h"
#include "mspatch/download_channels.h"
#include "mspatch/download_state.h"
#include "mspatch/update_state.h"
#include "platform/host.h"
#include "schedule/schedule_settings.h"

namespace kpm {

namespace {

using platform::Object;

void info(const char* proc, const std::string& message, const std::string& v1 = "") {
    WriteW3CLog("ModComman", proc, "INFO", message, v1);
}

void trap(const char* proc, const std::exception& e) {
    ErrInfo err = errFrom(e);
    runState.ErrorSeen = true;
    appendErrorTrail(proc, err);
    logTrap("ModComman", proc, "In " + std::string(proc) + ".", err);
}

void recordMethod(const std::string& fileName, const char* method) {
    subWriteINI("DownloadMethod", fileName, method, runState.DownloadStatusIniPath);
}

void countDownloaded(const std::string& destination, const char* method) {
    subWriteDownloadURL(destination);
    downloadCounters.CurrentDownloadedCount += 1;
    downloadCounters.CurrentDownloadedBytes += static_cast<double>(platform::files().fileSize(destination));
    recordMethod(updatePipeline.ContentFileName, method);
}

// One content file: already present, else the gateway, else (only when the
// gateway is not mandatory) Microsoft's URL through the download library and
// then through the download object. Bundles log each gateway attempt.
void fetchContent(const char* proc, const std::string& url, bool bundle) {
    UpdatePipelineState& s = updatePipeline;
    s.ContentStatusText.clear();
    s.ContentFileName = FileNameFromURL(url);
    if (s.ContentFileName.empty() || !IsSafeFileName(s.ContentFileName)) {
        LogUnsafeFileName("ModComman", proc, s.ContentFileName, url);
        return;
    }
    const std::string destination = ComponentsFolder() + s.ContentFileName;

    if (platform::files().fileExists(destination)) {
        info(proc, "Already Downloaded ", destination);
        downloadCounters.AlreadyDownloadedCount += 1;
        downloadCounters.AlreadyDownloadedBytes += static_cast<double>(platform::files().fileSize(destination));
        // Whatever channel once brought it.
        recordMethod(s.ContentFileName, "Online");
        if (platform::files().fileExists(ProgramFolderShort() + "\\DwldURL.txt")) subWriteDownloadURL(destination);
        return;
    }
    if (url.size() >= 4 && UCase(url.substr(url.size() - 4)) == ".PSF") return;  // never fetched

    if (bundle) info(proc, "Download through Gateway ");
    if (DloadPthOnGateWay(url)) {
        countDownloaded(destination, "Offline");
        return;
    }
    if (scheduleSettings.AlwaysDownloadViaGateway != "0") return;  // the gateway is mandatory

    info(proc, "Trying to Download Again through DownloadURL_FIle", url);
    downloadCounters.DownloadURLStatus = DownloadURL_File(url, destination);
    if (UCase(Trim(downloadCounters.DownloadURLStatus)) == "SUCCESS") {
        countDownloaded(destination, "Online");
        return;
    }
    WriteW3CLog("ModComman", proc, "ERROR", "Download Failed through DownloadURL_FIle", url,
                downloadCounters.DownloadURLStatus);
    info(proc, "Trying to Download Again", url);
    if (DLoadPchFromMicrosoft(url)) {
        countDownloaded(destination, "Online");
        return;
    }
    s.ContentStatusText = " " + s.ContentFileName + " : no channel could download it";
    runState.ErrorTrail += s.ContentStatusText;
}

Object contents(Object& update) { return update.obj("DownloadContents"); }

std::string contentURL(Object& list, int16_t index) {
    return list.obj("Item", index).get("DownloadURL").toString();
}

// A 16-bit counter, as the loops keep them.
int16_t nextIndex(int16_t index) {
    if (index == 32767) throw platform::makeError(platform::err::Overflow);
    return static_cast<int16_t>(index + 1);
}

// The content loop of an update that holds content.
void fetchContents(const char* proc, Object& update, bool bundle) {
    UpdatePipelineState& s = updatePipeline;
    Object list = contents(update);
    const int64_t count = list.get("Count").toLong();
    for (s.CurrentContentIndex = 0; s.CurrentContentIndex < count; s.CurrentContentIndex = nextIndex(s.CurrentContentIndex))
        fetchContent(proc, contentURL(list, s.CurrentContentIndex), bundle);
}

// A URL whose last four characters hold no "." has no file name to fetch.
bool withoutExtension(const std::string& url) {
    return url.substr(url.size() < 4 ? 0 : url.size() - 4).find('.') == std::string::npos;
}

}  // namespace

void CreateSingleUpdate() {
    const char* proc = "CreateSingleUpdate";
    UpdatePipelineState& s = updatePipeline;
    try {
        s.CurrentUpdate = s.SearchResult.obj("Updates").obj("Item", s.CurrentUpdateIndex);
        info(proc, "Total Download URL Found", contents(s.CurrentUpdate).get("Count").toString());
        fetchContents(proc, s.CurrentUpdate, false);
    } catch (const std::exception& e) {
        trap(proc, e);
    }
}

void CreateBundleUpdate() {
    const char* proc = "CreateBundleUpdate";
    UpdatePipelineState& s = updatePipeline;
    try {
        Object bundled = s.SearchResult.obj("Updates").obj("Item", s.CurrentUpdateIndex).obj("BundledUpdates");
        const int64_t bundleCount = bundled.get("Count").toLong();
        info(proc, "Bundle update count for this update", std::to_string(bundleCount));
        for (s.CurrentBundleIndex = 0; s.CurrentBundleIndex < bundleCount; s.CurrentBundleIndex = nextIndex(s.CurrentBundleIndex)) {
            s.CurrentUpdate = bundled.obj("Item", s.CurrentBundleIndex);
            CreateSubBundleUpdate();
            Object list = contents(s.CurrentUpdate);
            const int64_t count = list.get("Count").toLong();
            for (s.CurrentContentIndex = 0; s.CurrentContentIndex < count; s.CurrentContentIndex = nextIndex(s.CurrentContentIndex)) {
                const std::string url = contentURL(list, s.CurrentContentIndex);
                if (withoutExtension(url)) {
                    // No file to name: the update agent downloads the whole update itself.
                    info(proc, "Download update with the help of Windows API ");
                    Object downloader = s.UpdateSession.call("CreateUpdateDownloader").toObject();
                    downloader.put("Updates", s.UpdateCollection);
                    downloader.call("Download");
                    return;
                }
                fetchContent(proc, url, true);
            }
        }
    } catch (const std::exception& e) {
        trap(proc, e);
    }
}

void CreateSubBundleUpdate() {
    const char* proc = "CreateSubBundleUpdate";
    UpdatePipelineState& s = updatePipeline;
    try {
        Object bundled = s.CurrentUpdate.obj("BundledUpdates");
        const int64_t count = bundled.get("Count").toLong();
        info(proc, "Bundle update count for this update", std::to_string(count));
        // The second level never hands over to the update agent: a URL without
        // an extension goes through the channels like any other.
        for (int64_t i = 0; i < count; ++i) {
            Object sub = bundled.obj("Item", i);
            fetchContents(proc, sub, true);
        }
    } catch (const std::exception& e) {
        trap(proc, e);
    }
}

}  // namespace kpm

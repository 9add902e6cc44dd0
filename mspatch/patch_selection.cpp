#include "mspatch/patch_selection.h"

#include <cmath>
#include <cstdio>
#include <exception>
#include <vector>

#include "config/ini.h"
#include "driver/error_trap.h"
#include "driver/main.h"
#include "driver/run_state.h"
#include "log/w3c_log.h"
#include "mspatch/black_list.h"
#include "mspatch/patch_content.h"
#include "mspatch/update_state.h"
#include "mspatch/update_text.h"
#include "platform/host.h"
#include "schedule/schedule_settings.h"
#include "schedule/schedule_text.h"
#include "wuenv/environment.h"
#include "wuenv/probes.h"

namespace kpm {

namespace {

using platform::Object;

constexpr const char* kProc = "FncDeployPatch";
constexpr const char* kSeparator = "#@#";

void info(const std::string& message, const std::string& v1 = "") {
    WriteW3CLog("ModComman", kProc, "INFO", message, v1);
}

std::vector<std::string> split(const std::string& text, const std::string& separator) {
    std::vector<std::string> parts;
    size_t start = 0, at;
    while ((at = text.find(separator, start)) != std::string::npos) {
        parts.push_back(text.substr(start, at - start));
        start = at + separator.size();
    }
    parts.push_back(text.substr(start));
    return parts;
}

// Format(text, "0#"): a number gets at least two digits, other text stays as it is.
std::string twoDigits(const std::string& text) {
    double value;
    try {
        value = schedule_text::textToNumber(text);
    } catch (const std::exception&) {
        return text;
    }
    // Whole digits, however many: a day of 10^20 makes a date that overflows
    // later, where the runtime would stop too, not here.
    const double whole = std::nearbyint(value);
    char buf[400];
    std::snprintf(buf, sizeof buf, "%02.0f", std::fabs(whole));
    return (whole < 0 ? "-" : "") + std::string(buf);
}

// The update's classification and product, from its categories: a later
// category of a kind overwrites an earlier one, and a kind the update lacks
// keeps what the previous update had.
void readCategories(Object& update, std::string& classification, std::string& product) {
    for (const platform::Variant& item : update.obj("Categories").items()) {
        Object category = item.toObject();
        const std::string type = category.get("Type").toString();
        if (containsText(type, "updateclassification"))
            classification = Trim(category.get("Name").toString().substr(0, 99));
        else if (containsText(type, "product"))
            product = Trim(category.get("Name").toString().substr(0, 99));
    }
}

[[noreturn]] void stopForLowDisk() {
    const std::string stars(58, '*');
    const std::string message =
        "Download skipped due to the disk Space is less than 1.5 GB, Avail Disk Space : " + environment.DriveFreeMBText;
    info(stars);
    info(message);
    info(stars);
    runState.ErrorTrail = message;
    CloseAll();
}

// One selected update: alone in the collection, then its content.
void downloadSelected(Object& update) {
    UpdatePipelineState& s = updatePipeline;
    environment.ScanStartTime = platform::clock().now();
    Object identity = update.obj("Identity");
    const std::string id = identity.get("UpdateID").toString() + "." + identity.get("RevisionNumber").toString();
    info("Missing Patch Found", id);
    s.MissingPatchFound = true;
    s.CurrentPatchID = id;

    s.UpdateCollection = {};
    s.UpdateCollection = platform::automation().createObject("Microsoft.Update.UpdateColl");
    s.UpdateCollection.call("Add", update);
    if (update.obj("BundledUpdates").get("Count").toLong() > 0) {
        info("This is a bundled Update");
        CreateBundleUpdate();
    } else {
        info("This is a nonbundled Update");
        CreateSingleUpdate();
    }
}

}  // namespace

int32_t fncDateToNumber(const std::string& text) {
    const std::vector<std::string> parts = split(text, "/");
    if (parts.size() != 3) return 99999999;  // never older than anything
    const double value = schedule_text::textToNumber(Trim(parts[2]) + twoDigits(parts[0]) + twoDigits(parts[1]));
    if (!(value > -2147483648.5 && value < 2147483647.5)) throw platform::makeError(platform::err::Overflow);
    return static_cast<int32_t>(std::nearbyint(value));
}

bool FncDeployPatch() {
    UpdatePipelineState& s = updatePipeline;
    try {
        Object doc = platform::automation().createObject("MSXML2.DOMDocument");
        const std::string path = ProgramFolderShort() + "\\MSUpd.xml";
        if (!platform::files().fileExists(path)) {
            WriteW3CLog("ModXML", kProc, "INFO", path + " does not exists.");
            return false;
        }
        // MSXML 3.0 loads asynchronously unless told otherwise: the lists are read at once.
        doc.put("async", false);
        doc.call("Load", path);
        if (!ReadBlackLis()) {
            runState.ErrorTrail += " Invalid file Format BlackList or file not found";
            WriteW3CLog("ModXML", kProc, "INFO", "Invalid file Format BlackList or file not found");
            return false;
        }
        info("Downloading Patch");
        info("Searching for the Missing patches");
        if (scheduleSettings.AlwaysDownloadViaGateway == "1") info("Configured to download patches through Gateway");
        if (doc.obj("childNodes").get("length").toLong() < 1) return false;

        // Kept across elements and updates on purpose (see readCategories and
        // the separator test below).
        std::vector<std::string> products;
        std::string classification, product;
        for (const platform::Variant& element : doc.call("getElementsByTagName", "upcls").toObject().items()) {
            Object attributes = element.toObject().obj("Attributes");
            const std::string wanted = attributes.obj("item", 0).get("nodeValue").toString();
            scheduleSettings.UpclsScope = attributes.obj("item", 1).get("nodeValue").toString();
            const std::string productList = attributes.obj("item", 2).get("nodeValue").toString();
            if (productList.empty()) {
                info(productList + " Intended Product not found");
                continue;
            }
            if (productList.find(kSeparator) != std::string::npos) {
                products = split(productList, kSeparator);
                for (std::string& item : products) item = UCase(Trim(item));  // as compared, once
            } else  // split only at the separator: a single product leaves the previous list in place
                info("Intended Product list holds no #@#: the products compared stay as they were", productList);

            Object updates = s.SearchResult.obj("Updates");
            const int64_t count = updates.get("Count").toLong();
            for (int64_t index = 0; index < count; ++index) {
                if (index > 32767) throw platform::makeError(platform::err::Overflow);  // a 16-bit index
                s.CurrentUpdateIndex = static_cast<int16_t>(index);
                Object update = updates.obj("Item", s.CurrentUpdateIndex);
                if (update.get("IsInstalled").toBool()) continue;
                s.UpdateReleaseDate =
                    fncDateToNumber(Trim(update.get("LastDeploymentChangeTime").toString()));
                readCategories(update, classification, product);
                const std::string productKey = UCase(Trim(product));
                // Every match hands the update over again: a product named twice,
                // or matched by two elements, is downloaded (or found present) twice.
                for (const std::string& item : products) {
                    if (item != productKey || classification != wanted) continue;
                    if (fncLowDiskSpace()) stopForLowDisk();
                    if (!ChkBlackList()) continue;
                    downloadSelected(update);
                }
            }
        }
        return false;
    } catch (const std::exception& e) {
        ErrInfo err = errFrom(e);
        runState.ErrorSeen = true;
        appendErrorTrail(kProc, err);
        logTrap("ModComman", kProc, "In FncDeployPatch.", err);
        return false;
    }
}

}  // namespace kpm

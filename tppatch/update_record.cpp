#include "tppatch/update_record.h"

#include <exception>
#include <map>

#include "config/agent_settings.h"
#include "driver/error_trap.h"
#include "driver/main.h"
#include "driver/run_state.h"
#include "log/w3c_log.h"
#include "platform/host.h"
#include "tppatch/text_case.h"

namespace kpm {

namespace {

// Attribute text: the values come from the product list and the registry.
std::string escaped(const std::string& s) {
    std::string out;
    for (char c : s) {
        switch (c) {
        case '&': out += "&amp;"; break;
        case '<': out += "&lt;"; break;
        case '>': out += "&gt;"; break;
        case '"': out += "&quot;"; break;
        case '\t': out += "&#9;"; break;
        case '\n': out += "&#10;"; break;
        case '\r': out += "&#13;"; break;
        default:
            // Other control characters have no place in XML 1.0.
            if (static_cast<unsigned char>(c) >= 0x20) out += c;
        }
    }
    return out;
}

std::string attr(const char* name, const std::string& value) { return std::string(" ") + name + "=\"" + escaped(value) + "\""; }

const char* resultText(InstallerOutcome::Result r) {
    switch (r) {
    case InstallerOutcome::Result::Downloaded: return "downloaded";
    case InstallerOutcome::Result::Present: return "present";
    case InstallerOutcome::Result::NotDownloaded: return "not downloaded";
    }
    return "";
}

}  // namespace

void WriteUpdateRecord(const Catalogue& catalogue, const std::vector<ProductFinding>& findings,
                       const std::vector<InstallerOutcome>& outcomes) {
    const std::string path = InstallerFolder() + "\\TPUpdates.xml";
    try {
        std::string xml = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n<tpupdates" + attr("regid", agentSettings.RegID) +
                          attr("time", fncStampText(platform::clock().now())) + ">\r\n";
        std::map<size_t, const std::string*> whereFound;
        for (const auto& f : findings) whereFound[f.product] = &f.where;
        for (const auto& o : outcomes) {
            const Product& p = catalogue.products[o.product];
            const Installer& i = p.update.installer;
            const auto it = whereFound.find(o.product);
            const std::string found = it == whereFound.end() ? "" : *it->second;
            xml += "  <update" + attr("id", p.update.id) + attr("vendor", catalogue.vendors[p.vendor].id) +
                   attr("product", p.id) + attr("version", p.update.version) + attr("arch", ArchText(p.arch)) +
                   attr("file", i.name) + attr("size", std::to_string(i.size)) + attr("md5", i.md5) +
                   (i.sha256.empty() ? "" : attr("sha256", i.sha256)) + attr("state", resultText(o.result)) +
                   (o.why.empty() ? "" : attr("why", o.why)) + attr("found", found) + "/>\r\n";
        }
        for (const auto& f : findings) {
            if (f.state == ProductState::Conflicting) {
                // Nothing downloaded: the deployment step sees both installs and leaves them be.
                const Product& p = catalogue.products[f.product];
                xml += "  <conflict" + attr("vendor", catalogue.vendors[p.vendor].id) + attr("product", p.id) +
                       attr("update", p.update.id) + attr("found", f.where) + attr("newer", f.other) +
                       attr("reason", f.evidence) + "/>\r\n";
                continue;
            }
            if (f.state != ProductState::Unknown && f.state != ProductState::Failed && f.state != ProductState::HiveUnreadable)
                continue;
            const Product& p = catalogue.products[f.product];
            xml += std::string("  <") +
                   (f.state == ProductState::Unknown ? "unknown" : f.state == ProductState::Failed ? "failed" : "unreadable") +
                   attr("vendor", catalogue.vendors[p.vendor].id) + attr("product", p.id) + attr("found", f.where) +
                   attr("reason", f.evidence) + "/>\r\n";
        }
        xml += "</tpupdates>\r\n";
        platform::files().makeSureDirectoryPathExists(InstallerFolder() + "\\");
        // Whole or not at all: the deployment step never reads half a record.
        const std::string staged = path + ".partial";
        // UTF-8, whatever the computer's code page: the deployment step
        // reads the same names on a Greek computer as on a French one.
        platform::files().writeAll(staged, Utf8Text(xml));
        platform::files().moveFile(staged, path);
        subWriteDownloadURL(path);
        WriteW3CLog("ModTPMAssess", "WriteUpdateRecord", "INFO", "Update record written", path,
                    std::to_string(outcomes.size()) + " updates");
    } catch (const std::exception& e) {
        ErrInfo err = errFrom(e);
        logTrap("ModTPMAssess", "WriteUpdateRecord", "In WriteUpdateRecord.", err);
        appendErrorTrail("WriteUpdateRecord", err);
    }
}

}  // namespace kpm

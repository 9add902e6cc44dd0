// The third-party product list in the program's Temp folder against the
// selected vendors, and the web-post configuration the status posts need.
#include "check/check_parts.h"

#include <cstdint>

#include "config/agent_settings.h"
#include "config/ini.h"
#include "driver/error_trap.h"
#include "platform/errors.h"
#include "platform/host.h"
#include "tppatch/catalogue.h"
#include "tppatch/list_signature.h"
#include "tppatch/wildcard.h"
#include "webpost/site_config.h"

namespace kpm::check {

namespace {

std::vector<std::string> selectedNames(const std::string& selected) {
    std::vector<std::string> names(1);
    for (char c : selected) {
        if (c == ',') names.emplace_back();
        else names.back() += c;
    }
    for (auto& n : names) n = Trim(n);
    std::erase_if(names, [](const std::string& n) { return n.empty(); });
    return names;
}

// Serial and dates against --now and the serial the agent last accepted, and
// the signature when one lies beside the list (a pass checks it inside the
// archive and copies only the two lists out of it). Nothing is recorded.
void reportListValidity(Report& report, Section& out, const std::string& list, const std::string& path) {
    std::string why;
    const auto meta = ReadListMetadata(list, why);
    if (!meta) {
        out.add("validity", "unreadable: " + why);
        report.warnings.push_back(path + ": a pass would refuse it: unreadable: " + why);
        return;
    }
    out.add("serial, issued, valid until",
            std::to_string(meta->serial) + ", " + meta->issued + ", " + meta->validUntil);
    const uint64_t highest = HighestAcceptedSerial();
    out.add("highest serial accepted", highest == 0 ? "none yet" : std::to_string(highest));
    const platform::DateTime now = platform::clock().now();
    const std::string stale = CheckListFreshness(*meta, now.year * 10000 + now.month * 100 + now.day, highest);
    out.add("fresh", stale.empty() ? "yes" : "no: " + stale);
    if (!stale.empty()) report.warnings.push_back(path + ": a pass would refuse it: " + stale);
    const std::string signature = list + ".sig";
    if (!platform::files().fileExists(signature)) {
        out.add("signature", "not beside the list (a pass checks it inside pdlist.zip)");
        return;
    }
    std::vector<std::string> problems;
    const std::string bad = CheckListSignature(platform::files().readAll(list), platform::files().readAll(signature),
                                               TrustedListKeys(problems));
    out.add("signature", bad.empty() ? "verified" : "no: " + bad);
    if (!bad.empty()) report.warnings.push_back(path + ": a pass would refuse it: " + bad);
}

// The list's own check: the entries ReadCatalogue refuses.
void reportListOwnCheck(Report& report, Section& out, const Catalogue& catalogue) {
    out.add("vendors, products", std::to_string(catalogue.vendors.size()) + ", " +
                                     std::to_string(catalogue.products.size()));
    out.add("entries refused", std::to_string(catalogue.refused.size()));
    for (const auto& refused : catalogue.refused) {
        out.add("refused", refused);
        report.warnings.push_back("the product list refuses an entry: " + refused);
    }
}

}  // namespace

void CheckProductList(Report& report, const std::string& selectedVendors) {
    Section& out = report.section("product list");
    const std::string path = AppPath() + "\\Temp\\PDList.xml";
    const std::string shortPath = ProgramFolderShort() + "\\Temp\\PDList.xml";
    const std::vector<std::string> names = selectedNames(selectedVendors);
    out.add("selected vendors", selectedVendors.empty() ? "(none)" : selectedVendors);
    if (!platform::files().fileExists(shortPath)) {
        out.add("file", path + " (not there: a pass fetches it and removes it at its end)");
        return;
    }
    out.add("file", path);
    Catalogue catalogue;
    try {
        catalogue = ReadCatalogue(shortPath);
    } catch (const std::exception& e) {
        const std::string why = errFrom(e).description;
        out.add("reads", "no: " + why);
        report.warnings.push_back(path + " does not read as a product list (" + why + "): no product is assessed");
        return;
    }
    reportListOwnCheck(report, out, catalogue);
    reportListValidity(report, out, shortPath, path);
    for (const auto& name : names) {
        std::string found;
        for (const auto& v : catalogue.vendors)
            if (WildcardEquals(name, v.id) || WildcardEquals(name, v.name))
                found += (found.empty() ? "" : ", ") + v.name + " (" + std::to_string(v.products) + " products)";
        out.add("vendor " + name, found.empty() ? "not in the list" : found);
        if (found.empty())
            report.warnings.push_back("the selected vendor \"" + name + "\" is not in " + path +
                                      ": none of its products is assessed");
    }
}

void CheckWebPost(Report& report) {
    Section& out = report.section("web-post configuration");
    const std::string path = agentSettings.InstallPath + "Configuration\\wpConfig.xml";
    out.add("file", path);
    std::string problem;
    try {
        std::string text = platform::files().readAll(path);
        if (text.empty()) throw platform::ComError(62, "kpmdwld-check", "the file is empty");
        platform::maker().decryptData(text, static_cast<int32_t>(text.size()));
        platform::Object doc = platform::automation().createObject("MSXML2.DOMDocument");
        doc.call("loadXML", text);
        if (doc.obj("childNodes").get("length").toLong() < 1) problem = "it decrypts to no XML";
    } catch (const std::exception& e) {
        problem = errFrom(e).description;
    }
    if (!problem.empty()) {
        out.add("decrypts", "no: " + problem);
        report.warnings.push_back(path + " does not decrypt (" + problem +
                                  "): a pass ends at start-up, before any download (kpmdwld-encdec encrypt "
                                  "writes it from the plain XML)");
        return;
    }
    out.add("decrypts", "yes");
    // The pass's own reader, now that it cannot fail on the file.
    for (const char* kind : {"wppthmsbbllist", "wppthdwldinfo"}) {
        subReadXMLWebpost(kind);
        const WebPostSite& w = webPostSite;
        const std::string sites = w.PrimaryWebPostUrl.empty() && w.SecondaryWebPostUrl.empty()
                                      ? "no entry: not posted"
                                      : w.PrimaryWebPostUrl + (w.SecondaryWebPostUrl.empty() ? "" : ", then " + w.SecondaryWebPostUrl) +
                                            (w.PostEncryptFlag == "1" ? " (encrypted)" : "");
        out.add(kind, sites);
    }
}

}  // namespace kpm::check

// The agent's data folders, and where each kind of XML document is posted:
// the entry of "wpConfig.xml" for a document kind, by attribute position.
#include "webpost/site_config.h"

#include "config/agent_settings.h"
#include "config/ini.h"
#include "driver/error_trap.h"
#include "log/w3c_log.h"
#include "platform/host.h"

namespace kpm {

using platform::Object;

namespace {

const char* const kConfigFile = "Configuration\\wpConfig.xml";

std::string attribute(Object& attributes, int position) {
    return attributes.obj("item", position).get("nodeValue").toString();
}

// The first entry for `key` under a "fod" element marked "NDATAPOST"; an
// empty object when there is none.
Object findEntry(Object& doc, const std::string& key) {
    const std::string wanted = UCase(Trim(key));
    for (const auto& f : doc.call("getElementsByTagName", "fod").toObject().items()) {
        Object fod = f.toObject();
        if (UCase(fod.obj("Attributes").obj("item", 0).get("nodeTypedValue").toString()) != "NDATAPOST")
            continue;
        for (const auto& c : fod.obj("childNodes").items()) {
            Object group = c.toObject();
            if (UCase(group.get("baseName").toString()) != "PR4") continue;
            for (const auto& e : group.obj("childNodes").items()) {
                Object entry = e.toObject();
                Object attributes = entry.obj("Attributes");
                if (UCase(Trim(attribute(attributes, 0))) == wanted) return entry;
            }
        }
    }
    return {};
}

}  // namespace

void Create_Data_Log_Files() {
    try {
        const std::string& base = agentSettings.InstallPath;
        for (const char* folder : {"NDatapost", "BaseComponents\\PatchManagement\\ScanFld",
                                   "BaseComponents\\PatchManagement\\Components"}) {
            if (!platform::files().folderExists(base + folder)) platform::files().createFolder(base + folder);
        }
        webPostSite.WebPostConfigPath = base + kConfigFile;
        webPostSite.WebPostConfigText = EncDecXML(false, webPostSite.WebPostConfigPath);
    } catch (const std::exception& e) {
        logTrap("ModMain", "Create_Data_Log_Files", "Creating Data Files", errFrom(e));
    }
}

void subReadXMLWebpost(const std::string& documentKind) {
    WebPostSite& w = webPostSite;
    w.PrimaryWebPostUrl.clear();
    w.SecondaryWebPostUrl.clear();
    w.PostEncryptFlag.clear();
    w.PostPageName.clear();
    w.PostRootElement.clear();
    try {
        Object doc = platform::automation().createObject("MSXML2.DOMDocument");
        // Read and decrypted on every call: the file may change during the pass.
        w.WebPostConfigPath = agentSettings.InstallPath + kConfigFile;
        w.WebPostConfigText = EncDecXML(false, w.WebPostConfigPath);
        doc.call("loadXML", w.WebPostConfigText);
        if (doc.obj("childNodes").get("length").toLong() < 1) return;

        Object entry = findEntry(doc, documentKind);
        if (!entry) return;
        Object a = entry.obj("Attributes");
        w.PostEncryptFlag = attribute(a, 10);
        w.PostRootElement = attribute(a, 2);
        w.PostPageName = "tfr_" + attribute(a, 0) + "." + attribute(a, 1);
        // The selectors are compared untrimmed; the hosts are tested trimmed
        // but joined as they stand.
        const std::string scheme = attribute(a, 4) == "0" ? "http://" : "https://";
        const bool firstPair = attribute(a, 7) == "0";
        const std::string primary = attribute(a, firstPair ? 5 : 8);
        const std::string secondary = attribute(a, firstPair ? 6 : 9);
        if (!Trim(primary).empty()) w.PrimaryWebPostUrl = scheme + primary + "/" + w.PostPageName;
        if (Trim(secondary).empty()) return;
        w.SecondaryWebPostUrl = scheme + secondary + "/" + w.PostPageName;
    } catch (const std::exception& e) {
        ErrInfo info = errFrom(e);
        WriteW3CLog("ModXML", "subReadXMLWebpost", "ERROR", std::to_string(info.number),
                    info.description, std::to_string(info.lastDllError));
    }
}

}  // namespace kpm

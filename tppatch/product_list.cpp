#include "tppatch/product_list.h"

#include <exception>

#include "config/agent_settings.h"
#include "config/ini.h"
#include "driver/error_trap.h"
#include "driver/main.h"
#include "log/w3c_log.h"
#include "platform/host.h"
#include "schedule/schedule_settings.h"
#include "tppatch/assessment.h"
#include "tppatch/catalogue.h"
#include "tppatch/installer_download.h"
#include "tppatch/log_text.h"
#include "tppatch/update_record.h"

namespace kpm {

void ScanTpmUpdates() {
    WriteW3CLog("ModTPM", "ScanTpmUpdates", "INFO", "Downloading PDList/AUOptions XML");
    subXMLDownload();
    WriteW3CLog("ModTPM", "ScanTpmUpdates", "INFO", "\r\nCompleted downloading PDList/AUOptions XML");
    subAutoDeployment();
}

void subXMLDownload() {
    try {
        std::string buffer(1000, '\0');
        uint32_t n = platform::profile().getString("VornUpdates", "DownLoadSite", "0", buffer, 255,
                                                   agentSettings.InstallPath + "VornMobile.ini");
        const std::string downloadSite = buffer.substr(0, std::min<size_t>(n, buffer.size()));
        const std::string temp = ProgramFolderShort() + "\\Temp";

        if (!PDListIsCurrent || !AUOptionsIsCurrent) {
            PdListDownloadResult = fncDownloadTPMFile(downloadSite + "/wblist/pdlist.zip", temp);
            if (!PdListDownloadResult.Success) {
                WriteW3CLog("ModTPM", "subXMLDownload", "ERROR", "PDList.zip Download Failed.",
                            PdListDownloadResult.ErrorText1, LogText(PdListDownloadResult.ErrorText2));
                KeepInstallersAlreadyThere();  // no list arrived: what one verified before stays
                CloseAll();
            }
        }
        if (Trim(ProductListPath).empty()) ProductListPath = PdListDownloadResult.FilePath;

        // Each file is copied out only when the archive brought it.
        auto copyOut = [&](const char* name, bool current) {
            const std::string from = temp + "\\ZipComp\\" + name;
            if (!platform::files().findFirst(from) || current) return;
            subDeleteFile(temp + "\\" + name);
            platform::Object fso = platform::automation().createObject("Scripting.FileSystemObject");
            fso.call("CopyFile", from, temp + "\\" + name, true);
        };
        copyOut("AUOptions.xml", AUOptionsIsCurrent);
        copyOut("PDList.xml", PDListIsCurrent);

        if (PdListDownloadResult.Extracted) {
            resumeNext([&] { platform::files().deleteFile(temp + "\\ZipComp\\*.*"); });
            subDeleteFolder(temp + "\\ZipComp");
        }
    } catch (const std::exception& e) {
        ErrInfo err = errFrom(e);
        WriteW3CLog("ModTPM", "subXMLDownload", "ERROR",
                    std::to_string(err.number) + " (" + err.description +
                        ") in procedure subXMLDownload of Module ModTPM in Line No. 0");
        CloseAll();
    }
}

void subAutoDeployment() {
    const char* module = "ModTPMAssess";
    const char* proc = "subAutoDeployment";
    const std::string vendors = Trim(scheduleSettings.SelectedVendors);
    if (vendors.empty()) {
        WriteW3CLog(module, proc, "INFO", "Vendors to be Deployed Information not supplied.");
        return;
    }
    try {
        const std::string path = ProgramFolderShort() + "\\Temp\\PDList.xml";
        Catalogue catalogue;
        try {
            catalogue = ReadCatalogue(path);
        } catch (const std::exception& e) {
            // A list that cannot be read assesses nothing and throws nothing away.
            WriteW3CLog(module, proc, "ERROR", "Product list could not be read: no product is assessed", path,
                        errFrom(e).description);
            KeepInstallersAlreadyThere();
            return;
        }
        for (const auto& refused : catalogue.refused)
            WriteW3CLog(module, proc, "ERROR", "Product list entry refused", LogText(refused));
        WriteW3CLog(module, proc, "INFO", "Product list read", "vendors: " + std::to_string(catalogue.vendors.size()),
                    "products: " + std::to_string(catalogue.products.size()), LogText(vendors));
        const std::vector<bool> selected = SelectVendors(catalogue, vendors);
        const std::vector<ProductFinding> findings = AssessProducts(catalogue, selected);
        const std::vector<InstallerOutcome> outcomes = DownloadInstallers(catalogue, findings);
        WriteUpdateRecord(catalogue, findings, outcomes);
    } catch (const std::exception& e) {
        ErrInfo err = errFrom(e);
        logTrap(module, proc, "In subAutoDeployment.", err);
        appendErrorTrail(proc, err);
    }
}

std::string GetFileNameFromURL(const std::string& url) {
    size_t cut = url.find_last_of('\\');
    if (cut == std::string::npos) cut = url.find_last_of('/');
    const std::string name = cut == std::string::npos ? url : url.substr(cut + 1);
    return name.find('.') == std::string::npos ? std::string() : name;
}

void subDeleteFolder(const std::string& folder) {
    resumeNext([&] { platform::files().deleteFolder(folder); });
}

}  // namespace kpm

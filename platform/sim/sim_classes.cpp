// The classes and monikers the simulated machine has registered.
#include "platform/sim/sim_automation.h"
#include "platform/sim/sim_files.h"
#include "platform/sim/sim_machine.h"
#include "platform/sim/sim_objects.h"
#include "platform/sim/sim_xmlhttp.h"
#include "platform/sim/xml_dom.h"
#include "standins/job_download.h"
#include "standins/update_service_manager.h"
#include "standins/zip_component.h"

namespace platform::sim {

void registerStandardClasses(SimMachine& machine, SimAutomation& automation) {
    SimMachine* m = &machine;

    automation.registerMoniker("winmgmts:", [m] { return makeWmiService(m->config(), m->processes()); });
    automation.registerClass("Scripting.FileSystemObject",
                             [m] { return makeFileSystemObject(m->simFiles()); });
    automation.registerClass("Microsoft.Update.ServiceManager", [m] {
        return Object(std::make_shared<standins::UpdateServiceManager>(m->folder() / "update-services.ini"));
    });

    // ---- Classes from the other stand-ins of this machine: one line each. ----
    // (MSXML2.DOMDocument is registered here.)
    automation.registerClass("MSXML2.DOMDocument", [m] { return Object(createDomDocument(m->files())); });
    automation.registerClass(standins::kJobDownloadProgId, [m] {
        return Object(std::make_shared<standins::JobDownload>(m->standinHost()));
    });
    automation.registerClass(standins::kZipProgId, [m] {
        return Object(std::make_shared<standins::ZipComponent>(m->standinHost()));
    });
    for (const char* progId : kServerXmlHttpProgIds)
        automation.registerClass(progId, [m] { return makeServerXmlHttp(m->config()); });
}

}  // namespace platform::sim

// The classes and monikers the simulated machine has.
//
// One line per class: automation.registerClass(ProgID, factory).
//   - A class of Windows itself: the line below is all; it is there on every
//     machine unless machine.ini [Classes] says otherwise.
//   - A class of the maker's components: its row (ProgID, CLSID, DLL file
//     name) goes into standins/served_classes.h as well; the factory is then
//     reached only while registry.reg registers the class to that DLL and the
//     DLL is on the drive (regsvr32 of the DLL registers it).
#include "platform/sim/sim_automation.h"
#include "platform/sim/sim_files.h"
#include "platform/sim/sim_machine.h"
#include "platform/sim/sim_objects.h"
#include "platform/sim/sim_xmlhttp.h"
#include "platform/sim/xml_dom.h"
#include "standins/dispatch_base.h"
#include "standins/job_download.h"
#include "standins/string_cipher_class.h"
#include "standins/update_agent.h"
#include "standins/web_post.h"
#include "standins/zip_component.h"

namespace platform::sim {

void registerStandardClasses(SimMachine& machine, SimAutomation& automation) {
    SimMachine* m = &machine;

    // ---- Windows' own classes and monikers. ----
    automation.registerMoniker("winmgmts:", [m] { return makeWmiService(m->config(), m->processes()); });
    automation.registerClass("Scripting.FileSystemObject",
                             [m] { return makeFileSystemObject(m->simFiles()); });
    automation.registerClass("MSXML2.DOMDocument", [m] { return Object(createDomDocument(m->files(), m->codePage())); });
    for (const char* progId : kServerXmlHttpProgIds)
        automation.registerClass(progId, [m] { return makeServerXmlHttp(m->config()); });
    // wuapi.dll: the update agent stand-in, over the machine folder and machine.ini.
    auto wua = std::make_shared<const standins::UpdateAgentPlace>(standins::UpdateAgentPlace{
        m->folder(), m->folder() / "machine.ini", m->standinHost(), [m] { return Object(createDomDocument(m->files(), m->codePage())); }});
    automation.registerClass(standins::kUpdateSessionProgId, [wua] { return Object(standins::newUpdateSession(wua)); });
    automation.registerClass(standins::kUpdateServiceManagerProgId,
                             [wua] { return Object(standins::newUpdateServiceManager(wua)); });
    automation.registerClass(standins::kUpdateCollProgId, [] { return Object(standins::newUpdateCollection()); });
    automation.registerClass(standins::kAgentInfoProgId, [wua] { return Object(standins::newAgentInfo(wua)); });
    automation.registerClassId(standins::kWebProxyClsid, [] { return Object(standins::newWebProxy()); });

    // ---- The maker's classes (registered through registry.reg). ----
    automation.registerClass(standins::kWebPostProgId,
                             [m] { return Object(std::make_shared<standins::WebPost>(m->standinHost())); });
    // Created by class identifier only, and called through its interface's first method.
    automation.registerClassId(standins::kStringCipherClsid,
                               [] { return Object(std::make_shared<standins::StringCipherClass>()); });
    automation.registerInterface(standins::kStringCipherIid, standins::kStringCipherFirstMethod);
    automation.registerClass(standins::kJobDownloadProgId, [m] {
        return Object(std::make_shared<standins::JobDownload>(m->standinHost()));
    });
    automation.registerClass(standins::kZipProgId, [m] {
        return Object(std::make_shared<standins::ZipComponent>(m->standinHost()));
    });
}

}  // namespace platform::sim

// subReadXMLForSchedule / subReadTPMXMLForSchedule: the schedule part of
// "MSUpd.xml" and of the day's "Autosch_ddmmyyyy.xml" into the schedule
// settings and "SchPatch.ini", and the decision for this pass.
#include "config/ini.h"
#include "driver/main.h"
#include "log/w3c_log.h"
#include "platform/errors.h"
#include "platform/host.h"
#include "schedule/schedule_settings.h"
#include "schedule/schedule_text.h"

namespace kpm {

using platform::Object;
using namespace schedule_text;

namespace {

// The children of a schedule element are taken by position, whatever their
// names; a missing position is Nothing and ends the reader.
std::string child(Object& element, int index) {
    return element.obj("childNodes").obj("item", index).get("nodeTypedValue").toString();
}

// The whole file as the text stream's ReadAll gives it: an empty file has no
// line to read (error 62).
std::string readWholeFile(const std::string& path) {
    std::string text = platform::files().readAll(path);
    if (text.empty()) throw platform::ComError(62, "KPMDwld", "Input past end of file");
    return text;
}

// The six schedule values into the settings and the INI section, then the
// evaluation of this pass; returns the decision.
std::string storeSchedule(Object& element, const std::string& section, const std::string& ini) {
    ScheduleSettings& s = scheduleSettings;
    s.ScheduleFromTime = child(element, 4);
    subWriteINI(section, "FTIME", s.ScheduleFromTime, ini);
    s.ScheduleToTime = child(element, 5);
    subWriteINI(section, "ToTime", s.ScheduleToTime, ini);
    s.ScheduleType = child(element, 0);
    s.PatchDownloadEnabled = Trim(s.ScheduleType) == "4" ? "0" : "1";
    subWriteINI(section, "ScheduleType", s.ScheduleType, ini);
    s.MonthDateValue = child(element, 1);
    subWriteINI(section, "MonthDateValue", s.MonthDateValue, ini);
    s.MonthWeekValue = child(element, 2);
    subWriteINI(section, "MonthWeekValue", s.MonthWeekValue, ini);
    subWriteINI(section, "DT", dateDashed(platform::clock().now()), ini);
    return GetScheduleDecision(s.ScheduleFromTime, s.ScheduleToTime, s.ScheduleDayList,
                               s.ScheduleType, s.MonthDateValue, s.MonthWeekValue);
}

// "1"/"0": the flag's presence is tested by path, its value taken by position.
std::string gatewayFlag(Object& doc, Object& element, const char* xpath, int index) {
    if (!doc.get("selectSingleNode", xpath).dispatch()) return "0";
    std::string flag = child(element, index);
    return flag.empty() ? "0" : flag;
}

// Loads the schedule file into a new document after logging that it was found
// and what it holds; false when the document has no nodes.
bool loadSchedule(Object& doc, const std::string& path, const std::string& proc) {
    WriteW3CLog("ModXML", proc, "INFO", readWholeFile(path));
    // MSXML 3.0 loads asynchronously unless told otherwise: the nodes are read at once.
    doc.put("async", false);
    doc.call("Load", path);
    return doc.obj("childNodes").get("length").toLong() >= 1;
}

void notDue(const std::string& decision) {
    WriteW3CLog("ModWebPost", "fncWebPost", "INFO",
                "Download is not configured or the time has not come: " + decision);
}

}  // namespace

void subReadXMLForSchedule() {
    ScheduleSettings& s = scheduleSettings;
    const std::string proc = "subReadXMLForSchedule";
    try {
        Object doc = platform::automation().createObject("MSXML2.DOMDocument");
        const std::string folder = ProgramFolderShort();
        const std::string path = folder + "\\MSUpd.xml";
        if (!platform::files().fileExists(path)) {
            WriteW3CLog("ModXML", proc, "INFO", folder + "\\MSUpd.xml not found");
            return;
        }
        WriteW3CLog("ModXML", proc, "INFO", folder + "\\MSUpd.xml found");
        if (!loadSchedule(doc, path, proc)) return;
        const std::string ini = folder + "\\SchPatch.ini";

        for (const auto& item : doc.call("getElementsByTagName", "autopatchdeploy").toObject().items()) {
            Object element = item.toObject();
            s.ScheduleDayList = child(element, 3);
            if (element.obj("childNodes").get("length").toLong() != 1)
                s.MsScheduleDecision = storeSchedule(element, "DowSchTime", ini);
            if (s.MsScheduleDecision == "N") {
                notDue(s.MsScheduleDecision);
                s.PatchDownloadEnabled = "0";
                return;
            }
            s.AlwaysDownloadViaGateway = gatewayFlag(doc, element, "//autopatchdeploy/AlwaysDwnldGateway", 28);

            // Products are configured as soon as one upcls element names any.
            for (const auto& u : doc.call("getElementsByTagName", "upcls").toObject().items()) {
                Object attributes = u.toObject().obj("Attributes");
                attributes.obj("item", 0).get("nodeValue").toString();  // classification: not used here
                s.UpclsScope = attributes.obj("item", 1).get("nodeValue").toString();
                if (!attributes.obj("item", 2).get("nodeValue").toString().empty()) return;
            }
            WriteW3CLog("ModWebPost", "fncWebPost", "INFO",
                        "None of the Intended Product configured, Hence skipping the Patch Assessment");
            s.PatchDownloadEnabled = "0";
        }
    } catch (const std::exception&) {
        // The settings stay as far as they were written; nothing is reported.
    }
}

void subReadTPMXMLForSchedule() {
    ScheduleSettings& s = scheduleSettings;
    const std::string proc = "subReadTPMXMLForSchedule";
    try {
        s.PatchDownloadEnabled = "";
        Object doc = platform::automation().createObject("MSXML2.DOMDocument");
        const std::string folder = ProgramFolderShort();
        const std::string name = "\\Autosch_" + dateDdmmyyyy(platform::clock().now()) + ".xml";
        const std::string path = folder + name;
        WriteW3CLog("ModXML", proc, "INFO", folder + name + " found");
        if (!platform::files().fileExists(path)) return;
        if (!loadSchedule(doc, path, proc)) return;
        const std::string ini = folder + "\\SchPatch.ini";

        for (const auto& item : doc.call("getElementsByTagName", "autothirdpatchdeploy").toObject().items()) {
            Object element = item.toObject();
            s.ScheduleDayList = child(element, 3);
            if (element.obj("childNodes").get("length").toLong() != 1)
                s.TpScheduleDecision = storeSchedule(element, "TPDowSchTime", ini);
            if (s.TpScheduleDecision == "N") {
                // Reports the Microsoft decision, not its own.
                notDue(s.MsScheduleDecision);
                CloseAll();
            }
            s.SelectedVendors = child(element, 19);
            s.AlwaysDownloadViaGateway =
                gatewayFlag(doc, element, "//autothirdpatchdeploy/AlwaysDwnldGateway", 20);
            WriteW3CLog("ModXML", proc, "INFO", "Selected vendors are : " + s.SelectedVendors);
        }
    } catch (const std::exception&) {
        // The settings stay as far as they were written; nothing is reported.
    }
}

}  // namespace kpm

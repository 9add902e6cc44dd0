// fncCheckTime / fncCheckTimeTP: is the agent inside the window stored in
// "SchPatch.ini" by an earlier pass, and has today's download not been done yet?
#include "config/ini.h"
#include "driver/main.h"
#include "log/w3c_log.h"
#include "platform/host.h"
#include "schedule/schedule_settings.h"
#include "schedule/schedule_text.h"

namespace kpm {

using platform::DateTime;
using namespace schedule_text;

namespace {

bool checkStoredWindow(const std::string& section, const std::string& proc, bool thirdParty) {
    ScheduleSettings& s = scheduleSettings;
    bool result = false;
    auto info = [&](const std::string& message) { WriteW3CLog("ModXML", proc, "INFO", message); };
    try {
        s.InDownloadWindow = false;
        const std::string ini = ProgramFolderShort() + "\\SchPatch.ini";
        // First run: let the pass read the schedule.
        if (!platform::files().fileExists(ini)) {
            s.InDownloadWindow = true;
            return true;
        }
        const DateTime now = platform::clock().now();
        // A record from another day is refreshed by the schedule reader in this pass.
        const std::string dt = fncReadINI(section, "Dt", ini);
        if (dt.empty()) return true;
        const DateTime day = parseIniDate(dt);
        if (day != dateOnly(now)) return true;

        const std::string from = fncReadINI(section, "FTIME", ini);
        const std::string to = fncReadINI(section, "ToTIME", ini);
        DateTime start, end;
        if (from > to) {  // as text: "9:00" comes after "17:00" and is taken as past midnight
            // The minute of the from time itself still belongs to yesterday's window.
            if (now.hour * 100 + now.minute > textToNumber(removeColons(from))) {
                start = atTimeOfDay(day, from);
                end = atTimeOfDay(platform::addDays(day, 1), fncReadINI(section, "ToTime", ini));
            } else {
                start = atTimeOfDay(platform::addDays(day, -1), from);
                end = atTimeOfDay(day, fncReadINI(section, "ToTime", ini));
            }
        } else {
            start = atTimeOfDay(day, from);
            end = atTimeOfDay(day, fncReadINI(section, "ToTime", ini));
        }

        if (start < now && now < end) {
            info("Agent time is the patch download time.");
            result = true;
            s.InDownloadWindow = true;
            const std::string last = fncReadINI(section, "LDwnRDate", ini);
            if (last.empty()) return result;
            if (last.substr(0, last.find(' ')) == dateMmddyyyy(now)) {
                info("Agent last patch download check time, " + last);
                result = false;
                if (thirdParty) CloseAll();
                return result;
            }
            subWriteINI(section, "LDwnRDate", "", ini);
            return result;
        }
        info("Agent time is not in patch download time or download has been done for the day, " +
             fncReadINI(section, "LDwnRDate", ini));
        return false;
    } catch (const std::exception&) {
        return result;
    }
}

}  // namespace

bool fncCheckTime() { return checkStoredWindow("DowSchTime", "fncCheckTime", false); }

bool fncCheckTimeTP() { return checkStoredWindow("TPDowSchTime", "fncCheckTimeTP", true); }

}  // namespace kpm

#include "mspatch/black_list.h"

#include <exception>

#include "config/ini.h"
#include "driver/error_trap.h"
#include "driver/run_state.h"
#include "log/w3c_log.h"
#include "mspatch/patch_selection.h"
#include "mspatch/update_state.h"
#include "mspatch/update_text.h"
#include "platform/host.h"
#include "schedule/schedule_settings.h"
#include "webpost/status_posts.h"
#include "wuenv/environment.h"

namespace kpm {

namespace {

using platform::Object;

void info(const std::string& message, const std::string& v1 = "", const std::string& v2 = "",
          const std::string& v3 = "") {
    WriteW3CLog("ModComman", "ChkBlackList", "INFO", message, v1, v2, v3);
}

}  // namespace

bool ReadBlackLis() {
    UpdatePipelineState& s = updatePipeline;
    try {
        // The whole scope is allowed: no file is needed.
        if (scheduleSettings.UpclsScope == "AL") return true;
        const std::string text = platform::files().readAll(ProgramFolderShort() + "\\Temp\\PatchBlackList.txt");
        size_t start = 0;
        while (start < text.size()) {
            size_t end = text.find('\n', start);
            if (end == std::string::npos) end = text.size();
            std::string line = text.substr(start, end - start);
            start = end + 1;
            if (!line.empty() && line.back() == '\r') line.pop_back();
            line = Trim(line);
            if (line.empty()) continue;
            if (line.find(',') != std::string::npos) {
                s.BlackListEntries.push_back(line);
                s.BlackListByLength[line.size()].insert(UCase(line));
            } else if (containsText(line, "release date=")) {
                s.BlackListDate = fncDateToNumber(line.substr(line.find('=') + 1));
            }
        }
        return true;
    } catch (const std::exception& e) {
        ErrInfo err = errFrom(e);
        runState.ErrorTrail += " Invalid BlackList format ";
        logTrap("ModComman", "ReadBlackLis", "In ReadBlackLis.", err);
        return false;
    }
}

bool ChkBlackList() {
    UpdatePipelineState& s = updatePipeline;
    try {
        Object update = s.SearchResult.obj("Updates").obj("Item", s.CurrentUpdateIndex);
        const std::string kb = Trim(update.obj("KBArticleIDs").get("Item", 0).toString());
        if (containsText(PartnerBlackList, kb)) {
            info("This Patch is Black listed by Partner", kb);
            return false;
        }
        if (scheduleSettings.UpclsScope == "AL") return true;

        info("KB", std::to_string(s.UpdateReleaseDate), "BL", std::to_string(s.BlackListDate));
        if (s.UpdateReleaseDate < s.BlackListDate) {
            // Does any entry occur in the key (case-insensitively)?
            const std::string key = UCase(Trim(environment.OSName) + "," + Trim(environment.ServicePackName) + "," + kb);
            for (const auto& [length, entries] : s.BlackListByLength) {
                for (size_t at = 0; at + length <= key.size(); ++at) {
                    if (entries.count(key.substr(at, length))) {
                        info("This patch is Black listed by MSP@VORN " + kb);
                        return false;
                    }
                }
            }
            return true;
        }
        // Newer than the list: held back until a newer list arrives.
        info("Microsoft has released " + kb + " patch after we released the black list so skipping this patch : " +
                 std::to_string(dateValueYmd(update.get("LastDeploymentChangeTime"))) + " Patch Black List Date",
             std::to_string(s.BlackListDate));
        return false;
    } catch (const std::exception& e) {
        logTrap("ModComman", "ChkBlackList", "In ChkBlackList.", errFrom(e));
        return false;
    }
}

}  // namespace kpm

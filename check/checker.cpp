#include "check/checker.h"

#include <cstdio>

#include "check/check_parts.h"
#include "driver/main.h"
#include "platform/host.h"

namespace kpm::check {

Section& Report::section(const std::string& name) {
    for (auto& s : sections)
        if (s.name == name) return s;
    sections.push_back({name, {}});
    return sections.back();
}

int Report::exitCode() const {
    if (!unreadable.empty()) return 2;
    return warnings.empty() ? 0 : 1;
}

std::string WeekdayName(int weekday) {
    static const char* names[] = {"Sunday", "Monday", "Tuesday", "Wednesday", "Thursday", "Friday", "Saturday"};
    return weekday >= 1 && weekday <= 7 ? names[weekday - 1] : "day " + std::to_string(weekday);
}

std::string DateText(const platform::DateTime& t) {
    char buf[40];
    std::snprintf(buf, sizeof buf, "%.3s %04d-%02d-%02d %02d:%02d", WeekdayName(platform::weekday(t)).c_str(), t.year,
                  t.month, t.day, t.hour, t.minute);
    return buf;
}

Report RunChecks(CheckHost& host) {
    Report report;
    resetProcessState();
    if (!CheckAgent(report)) {
        report.summary.push_back("A pass would end at once, silently: " + report.unreadable);
        return report;
    }
    CheckNetwork(report);
    const std::string vendors = CheckWindows(host, report);
    CheckProductList(report, vendors);
    CheckWebPost(report);
    // The readers are kept from writing; one that tried is a defect of the checker's.
    for (const auto& write : host.refusedWrites()) report.warnings.push_back("a reader tried to write " + write);
    return report;
}

}  // namespace kpm::check

// The checker's sections, each filling its part of the report.
#pragma once

#include <string>

#include "check/check_host.h"
#include "check/checker.h"

namespace kpm::check {

// The agent key and INI through InitializeEXE; false when a pass would end
// before reading anything else (the report then says why).
bool CheckAgent(Report& report);
// Proxy, gateway, data-center, black-list, download and management addresses.
void CheckNetwork(Report& report);
// Both windows: the schedule files, the stored record, the decision at the
// host's moment and the next opening. Returns the selected vendors as read.
std::string CheckWindows(CheckHost& host, Report& report);
// The selected vendors against Temp's product list, the list's own check.
void CheckProductList(Report& report, const std::string& selectedVendors);
// The web-post configuration: decrypts, and names the sites for the posts.
void CheckWebPost(Report& report);

// Texts shared by the sections.
std::string WeekdayName(int weekday);  // 1 = Sunday
std::string DateText(const platform::DateTime& t);  // "Tue 2026-11-24 09:00"

}  // namespace kpm::check

// Date stamps, number conversions and INI date/time parsing shared by the
// schedule readers, the schedule evaluation and the window checks.
#pragma once

#include <cstdint>
#include <string>

#include "platform/datetime.h"

namespace kpm::schedule_text {

std::string stampYmd(const platform::DateTime& t);        // "20261115"
std::string stampYmdHms(const platform::DateTime& t);     // "20261115161000"
std::string dateDashed(const platform::DateTime& t);      // "2026-3-7": the "DT" key
std::string dateDdmmyyyy(const platform::DateTime& t);    // "15112026": "Autosch_" names
std::string dateMmddyyyy(const platform::DateTime& t);    // "11/15/2026": "LDwnRDate" days

platform::DateTime dateOnly(const platform::DateTime& t);

std::string removeColons(std::string s);
// Every occurrence of `what` replaced.
std::string replaceAll(std::string s, const std::string& what, const std::string& with);

// A text as a number, as the runtime converts it: blanks allowed around, a
// non-number raises error 13 (type mismatch), "" included.
double textToNumber(const std::string& text);
// The same for a 16-bit integer (error 6 when it does not fit).
int textToInt(const std::string& text);

// A date as the INI holds it: "2026-3-7" (year first) or "3/7/2026" (month
// first), with or without a time behind it. Error 13 when it is no date.
platform::DateTime parseIniDate(const std::string& text);
// `day` at the time of day "H:MM" or "H:MM:SS". Error 13 when it is no time.
platform::DateTime atTimeOfDay(const platform::DateTime& day, const std::string& time);

}  // namespace kpm::schedule_text

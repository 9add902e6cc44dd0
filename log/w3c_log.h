// The activity log: one W3C extended log file per agent registration.
#pragma once

#include <string>

namespace kpm {

inline std::string LogFilePath;  // empty until OpenW3CLog has finished

// Works out the log's path, applies the size rule and writes the header of a
// new file. Ends the process when the install folder or the RegID is missing.
bool OpenW3CLog();

// One entry: module, procedure, type ("INFO"/"ERROR"), message, three values.
// Never fails towards its caller.
void WriteW3CLog(const std::string& module, const std::string& proc, const std::string& type,
                 const std::string& message, const std::string& val1 = "",
                 const std::string& val2 = "", const std::string& val3 = "");

// Size rule: a log of more than this many bytes is started anew at open.
inline constexpr unsigned long long kLogSizeLimitKB = 5000;

}  // namespace kpm

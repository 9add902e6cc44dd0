// The pass: its fixed order of steps and its ways out.
#pragma once

#include <string>

namespace kpm {

// The whole pass. Ends through CloseAll or one of the early exits, all of
// which end the process (platform::ProcessEnd).
void Main();

bool AlreadyRunning();
[[noreturn]] void CloseAll();
void subDeleteTempFiles();
void subDeleteFile(const std::string& path);

// The program's version as major.minor.revision.
std::string ProgramVersion();

// Clears every process-wide record, as a fresh process starts with.
void resetProcessState();

}  // namespace kpm

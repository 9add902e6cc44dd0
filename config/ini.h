// INI files, short paths and the program's own folder.
#pragma once

#include <string>

namespace kpm {

// The value of a key, trimmed; "" when missing. Failures are ignored.
std::string fncReadINI(const std::string& section, const std::string& key, const std::string& file);
// Writes one key, creating the file and the section as needed; the result is ignored.
void subWriteINI(const std::string& section, const std::string& key, const std::string& value,
                 const std::string& file);
// The short (8.3) form of an existing path, else the path unchanged.
std::string fncGetShortPath(const std::string& path);

// The executable's folder without a trailing "\" ("App.Path"), and its base
// name without extension ("App.EXEName").
std::string AppPath();
std::string AppExeName();
// The program's own folder in its short form: where the schedule files,
// "SchPatch.ini" and "Temp" live.
std::string ProgramFolderShort();

// Blanks (spaces) trimmed from both ends, as the runtime's Trim does.
std::string Trim(const std::string& s);
std::string UCase(std::string s);
std::string LCase(std::string s);

}  // namespace kpm

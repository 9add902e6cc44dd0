// Whole passes as data. A scenario is a folder: what it changes on top of its
// base (machine files, site files, faults, the moments of its passes) and, in
// expected/, what the passes must leave. tests/scenarios/README.md describes
// the format; this runs one scenario and collects what its passes left.
#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace kpmtest::scenario {

namespace fs = std::filesystem;

// The files of expected/, in the order a failure reports them.
inline const char* const kOutputs[] = {"ends.txt", "log.txt", "changes.txt", "requests.txt", "posts.txt"};

// What the passes left, by output file name; an empty text stands for a file
// that expected/ does not hold.
using Outputs = std::map<std::string, std::string>;

// The scenarios below `root` as "group/case": every folder two levels down
// with a scenario.ini, except under "bases", sorted.
std::vector<std::string> list(const fs::path& root);

// Builds the scenario's machine and sites in a scratch folder, runs its
// passes and collects what they left. A folder that cannot be read throws
// std::runtime_error naming the file and why.
Outputs run(const fs::path& root, const std::string& name);

}  // namespace kpmtest::scenario

// Line diffs for the scenario runner: what a pass changed in a file, and how
// an expected output differs from what the passes left.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace kpmtest {

// `before` against `after`, line by line: "  " + an unchanged line, "- " + a
// line only in `before`, "+ " + a line only in `after`. Unchanged runs longer
// than twice `context` keep `context` lines at each end and show "  ..." for
// the rest.
std::vector<std::string> lineDiff(const std::vector<std::string>& before, const std::vector<std::string>& after,
                                  size_t context);

// Text split at LF, without the line ends.
std::vector<std::string> splitLines(const std::string& text);

}  // namespace kpmtest

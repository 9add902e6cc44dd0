// INI text as lines: what the private-profile calls and machine.ini share.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace platform::sim {

struct IniLine {
    enum class Kind { Blank, Comment, Section, Key, Other };
    Kind kind = Kind::Blank;
    size_t begin = 0, end = 0;  // the line's text, without its line end
    size_t next = 0;            // where the following line starts
    std::string name;           // section name, or key name (blanks trimmed)
    std::string value;          // key value (blanks trimmed, quotes kept)
};

// Splits text at LF (a CR before it belongs to the line end). A section line
// starts with '[' and its name ends at the first ']' (or the line end); a key
// line has '='; ';' starts a comment. Blanks around names and values go.
std::vector<IniLine> scanIni(std::string_view text);

// Blanks are spaces, tabs and vertical tabs, as the profile calls trim them.
std::string_view trimBlanks(std::string_view s);

// One pair of matching enclosing quotes (single or double) removed.
std::string_view unquote(std::string_view s);

}  // namespace platform::sim

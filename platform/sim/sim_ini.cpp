#include "platform/sim/sim_ini.h"

namespace platform::sim {

std::string_view trimBlanks(std::string_view s) {
    size_t b = 0, e = s.size();
    auto blank = [](char c) { return c == ' ' || c == '\t' || c == '\v'; };
    while (b < e && blank(s[b])) ++b;
    while (e > b && blank(s[e - 1])) --e;
    return s.substr(b, e - b);
}

std::string_view unquote(std::string_view s) {
    if (s.size() >= 2 && (s.front() == '"' || s.front() == '\'') && s.back() == s.front())
        return s.substr(1, s.size() - 2);
    return s;
}

std::vector<IniLine> scanIni(std::string_view text) {
    std::vector<IniLine> lines;
    size_t pos = 0;
    while (pos < text.size()) {
        IniLine line;
        line.begin = pos;
        size_t lf = text.find('\n', pos);
        line.next = lf == std::string_view::npos ? text.size() : lf + 1;
        line.end = lf == std::string_view::npos ? text.size() : lf;
        if (line.end > line.begin && text[line.end - 1] == '\r') --line.end;
        pos = line.next;

        std::string_view t = trimBlanks(text.substr(line.begin, line.end - line.begin));
        if (t.empty()) {
            line.kind = IniLine::Kind::Blank;
        } else if (t.front() == ';') {
            line.kind = IniLine::Kind::Comment;
        } else if (t.front() == '[') {
            // The name ends at the first ']', or at the line end without one.
            size_t close = t.find(']');
            line.kind = IniLine::Kind::Section;
            line.name = trimBlanks(t.substr(1, close == std::string_view::npos ? close : close - 1));
        } else if (size_t eq = t.find('='); eq != std::string_view::npos) {
            line.kind = IniLine::Kind::Key;
            line.name = trimBlanks(t.substr(0, eq));
            line.value = trimBlanks(t.substr(eq + 1));
        } else {
            line.kind = IniLine::Kind::Other;
        }
        lines.push_back(std::move(line));
    }
    return lines;
}

}  // namespace platform::sim

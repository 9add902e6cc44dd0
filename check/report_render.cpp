// The report as text for people and as one JSON document for scripts.
#include <cstdio>

#include "check/checker.h"

namespace kpm::check {

namespace {

std::string jsonText(const std::string& s) {
    std::string out = "\"";
    for (unsigned char c : s) {
        if (c == '"' || c == '\\') {
            out += '\\';
            out += static_cast<char>(c);
        } else if (c < 0x20) {
            char buf[8];
            std::snprintf(buf, sizeof buf, "\\u%04x", c);
            out += buf;
        } else {
            out += static_cast<char>(c);
        }
    }
    return out + "\"";
}

std::string jsonList(const std::vector<std::string>& list, const char* indent) {
    std::string out = "[";
    for (size_t i = 0; i < list.size(); ++i) out += (i ? ",\n" : "\n") + std::string(indent) + "  " + jsonText(list[i]);
    return out + (list.empty() ? "]" : "\n" + std::string(indent) + "]");
}

}  // namespace

std::string RenderText(const Report& report) {
    std::string out;
    for (const auto& line : report.summary) out += line + "\n";
    for (const auto& section : report.sections) {
        out += "\n[" + section.name + "]\n";
        for (const auto& item : section.items)
            out += "  " + item.key + ": " + (item.value.empty() ? "(empty)" : item.value) + "\n";
    }
    if (!report.warnings.empty()) {
        out += "\n[warnings]\n";
        for (const auto& w : report.warnings) out += "  WARNING: " + w + "\n";
    }
    const int code = report.exitCode();
    out += std::string("\n") + (code == 0 ? "All clear." : code == 1 ? std::to_string(report.warnings.size()) + " warning(s)."
                                                                     : "Could not read the agent's configuration.") +
           "\n";
    return out;
}

std::string RenderJson(const Report& report) {
    std::string out = "{\n  \"exit\": " + std::to_string(report.exitCode()) + ",\n";
    out += "  \"unreadable\": " + jsonText(report.unreadable) + ",\n";
    out += "  \"summary\": " + jsonList(report.summary, "  ") + ",\n  \"sections\": {";
    for (size_t s = 0; s < report.sections.size(); ++s) {
        const Section& section = report.sections[s];
        out += std::string(s ? "," : "") + "\n    " + jsonText(section.name) + ": [";
        for (size_t i = 0; i < section.items.size(); ++i)
            out += std::string(i ? "," : "") + "\n      {\"key\": " + jsonText(section.items[i].key) +
                   ", \"value\": " + jsonText(section.items[i].value) + "}";
        out += section.items.empty() ? "]" : "\n    ]";
    }
    out += report.sections.empty() ? "},\n" : "\n  },\n";
    out += "  \"warnings\": " + jsonList(report.warnings, "  ") + "\n}\n";
    return out;
}

}  // namespace kpm::check

#include "tppatch/log_text.h"

#include <cstdio>

namespace kpm {

std::string LogText(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (char c : text) {
        const auto b = static_cast<unsigned char>(c);
        if (b >= 0x20 && b != 0x7F) {
            out += c;
        } else if (c == '\r') {
            out += "\\r";
        } else if (c == '\n') {
            out += "\\n";
        } else if (c == '\t') {
            out += "\\t";
        } else {
            char hex[8];
            std::snprintf(hex, sizeof hex, "\\x%02X", b);
            out += hex;
        }
    }
    return out;
}

}  // namespace kpm

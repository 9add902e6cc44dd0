#include "tppatch/xml_guard.h"

namespace kpm {

namespace {

// The end of a construct that starts at `at` with `open`, or npos.
size_t skipPast(std::string_view xml, size_t at, std::string_view close) {
    const size_t end = xml.find(close, at);
    return end == std::string_view::npos ? end : end + close.size();
}

}  // namespace

std::string HostileXmlReason(std::string_view xml, int mostDepth) {
    if (xml.size() > kMostProductListBytes)
        return "it holds " + std::to_string(xml.size()) + " bytes, more than " + std::to_string(kMostProductListBytes);
    // Read as bytes, a UTF-16 or UTF-32 text would hide its declarations.
    if (xml.find('\0') != std::string_view::npos || xml.starts_with("\xFE\xFF") || xml.starts_with("\xFF\xFE"))
        return "it is not an 8-bit text (UTF-16 or a NUL byte)";
    int depth = 0;
    for (size_t at = xml.find('<'); at != std::string_view::npos; at = xml.find('<', at)) {
        const std::string_view rest = xml.substr(at);
        if (rest.starts_with("<!--")) {
            at = skipPast(xml, at + 4, "-->");
        } else if (rest.starts_with("<![CDATA[")) {
            at = skipPast(xml, at + 9, "]]>");
        } else if (rest.starts_with("<?")) {
            at = skipPast(xml, at + 2, "?>");
        } else if (rest.starts_with("<!")) {
            // DOCTYPE, ENTITY, ELEMENT, ATTLIST: a list never needs one.
            return "it declares a document type (\"" + std::string(rest.substr(0, rest.find_first_of(" \t\r\n>["))) +
                   "\"), which a product list never holds";
        } else if (rest.starts_with("</")) {
            --depth;
            at = skipPast(xml, at + 2, ">");
        } else {
            // A start tag: its end is the first '>' outside quoted attribute values.
            size_t end = at + 1;
            char quote = 0;
            for (; end < xml.size(); ++end) {
                const char c = xml[end];
                if (quote) quote = c == quote ? 0 : quote;
                else if (c == '"' || c == '\'') quote = c;
                else if (c == '>') break;
            }
            if (end >= xml.size()) break;  // not well-formed: the parser says so
            if (xml[end - 1] != '/' && ++depth > mostDepth)
                return "its elements nest deeper than " + std::to_string(mostDepth) + " levels";
            at = end + 1;
        }
        if (at == std::string_view::npos) break;
    }
    return {};
}

}  // namespace kpm

#include "standins/zip_archive.h"

namespace standins {

std::unique_ptr<ZipReader> ZipReader::open(const std::string& readablePath, std::string& error) {
#ifdef _WIN32
    return openZipZlib(readablePath, error);
#else
    return openZipMinizip(readablePath, error);
#endif
}

bool isSafeEntryName(const std::string& name) {
    if (name.empty() || name.front() == '/') return false;
    for (char c : name) {
        // "\" and ":" would let Windows read a separator, a drive or an
        // alternate data stream; control characters (NUL above all) would cut
        // the path short in the C and Win32 calls.
        if (c == '\\' || c == ':' || static_cast<unsigned char>(c) < 0x20) return false;
    }
    // Walk the "/"-separated components. Windows drops trailing dots and
    // spaces from a component, so "..", "..." and ".. " all climb a level;
    // any component made only of dots and spaces is refused ("." with them:
    // it names nothing a file could be written to).
    size_t start = 0;
    while (start <= name.size()) {
        size_t end = name.find('/', start);
        if (end == std::string::npos) end = name.size();
        const std::string part = name.substr(start, end - start);
        const bool last = end == name.size();
        // An empty component is allowed only as the trailing one of a folder entry ("a/").
        if (part.empty() && !(last && start > 0)) return false;
        if (!part.empty() && part.find_first_not_of(". ") == std::string::npos) return false;
        start = end + 1;
    }
    return true;
}

}  // namespace standins

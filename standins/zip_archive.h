// Reading zip archives for the zip component's stand-in. Two backends with
// one behaviour: minizip on Linux, a reader over zlib in the Windows build
// (MinGW has zlib but no minizip). Archives come from real zip tools.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "standins/transfer.h"

namespace standins {

struct ZipEntry {
    std::string name;      // as stored in the archive ("a/b.txt")
    uint64_t size = 0;     // uncompressed size
    bool isFolder = false; // a name ending in "/"
};

class ZipReader {
public:
    virtual ~ZipReader() = default;
    // Opens the archive at a path the C library can open with the platform's
    // backend; null with a reason when it is missing or is no zip archive.
    static std::unique_ptr<ZipReader> open(const std::string& readablePath, std::string& error);

    virtual const std::vector<ZipEntry>& entries() const = 0;
    // Streams entry `index`'s bytes to `sink`; false with a reason when the
    // entry is damaged (bad data, CRC mismatch, truncated), is encrypted or
    // uses a method other than stored/deflated, or the sink refused.
    virtual bool extract(size_t index, const DataSink& sink, std::string& error) = 0;
};

// The backends themselves, named so that tests can hold both to one table.
// The zlib reader is built everywhere; minizip only where it exists (not Windows).
std::unique_ptr<ZipReader> openZipZlib(const std::string& readablePath, std::string& error);
#ifndef _WIN32
std::unique_ptr<ZipReader> openZipMinizip(const std::string& readablePath, std::string& error);
#endif

// True when an entry name stays inside the folder it is unpacked into: not
// empty, relative, no drive or ":", no "\", no ".." component.
bool isSafeEntryName(const std::string& name);

// The words both backends use for the same damage, so callers and tests see
// one text whichever backend read the archive.
namespace ziperr {
inline constexpr const char* kNotZip = "not a zip archive";
inline constexpr const char* kCrc = "CRC mismatch";
inline constexpr const char* kData = "compressed data is damaged";
inline constexpr const char* kSize = "size does not match the directory";
inline constexpr const char* kEncrypted = "entry is encrypted";
inline constexpr const char* kSink = "the output refused the data";
}  // namespace ziperr

}  // namespace standins

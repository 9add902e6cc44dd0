// A small zip reader over zlib, for the Windows build where minizip is not
// available: the end record, the central directory, each entry's local
// header, then stored or raw-deflated data checked against the directory's
// CRC-32 and sizes. Every offset and length taken from the file is checked
// against the file's real extent before it is used, so a damaged archive
// gives an error, never a crash or an outsized allocation. Zip64 and
// multi-part archives are refused: the archives this program reads are small.
#include <zlib.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "standins/zip_archive.h"

namespace standins {

namespace {

constexpr uint32_t kEndSig = 0x06054b50;
constexpr uint32_t kCentralSig = 0x02014b50;
constexpr uint32_t kLocalSig = 0x04034b50;
constexpr size_t kEndSize = 22;
constexpr size_t kCentralSize = 46;
constexpr size_t kLocalSize = 30;
constexpr size_t kMaxComment = 0xFFFF;
constexpr size_t kChunk = 64 * 1024;
// A directory beyond this is no archive this program meets; refusing it keeps
// a damaged size field from asking for gigabytes.
constexpr uint64_t kMaxDirectory = 64ull * 1024 * 1024;

uint16_t le16(const unsigned char* p) { return static_cast<uint16_t>(p[0] | (p[1] << 8)); }
uint32_t le32(const unsigned char* p) {
    return static_cast<uint32_t>(p[0]) | (static_cast<uint32_t>(p[1]) << 8) |
           (static_cast<uint32_t>(p[2]) << 16) | (static_cast<uint32_t>(p[3]) << 24);
}

// A read-only file with 64-bit offsets and exact reads.
class File {
public:
    ~File() {
        if (f_) std::fclose(f_);
    }
    bool open(const std::string& path) {
        f_ = std::fopen(path.c_str(), "rb");
        return f_ != nullptr;
    }
    bool size(uint64_t& out) {
        if (!seek(0, SEEK_END)) return false;
#ifdef _WIN32
        long long n = _ftelli64(f_);
#else
        off_t n = ftello(f_);
#endif
        if (n < 0) return false;
        out = static_cast<uint64_t>(n);
        return true;
    }
    bool readAt(uint64_t offset, void* buf, size_t n) {
        return seek(offset, SEEK_SET) && std::fread(buf, 1, n, f_) == n;
    }
    // Continues from the last read or seekTo.
    bool readNext(void* buf, size_t n) { return std::fread(buf, 1, n, f_) == n; }
    bool seekTo(uint64_t offset) { return seek(offset, SEEK_SET); }

private:
    bool seek(uint64_t offset, int whence) {
#ifdef _WIN32
        return _fseeki64(f_, static_cast<long long>(offset), whence) == 0;
#else
        return fseeko(f_, static_cast<off_t>(offset), whence) == 0;
#endif
    }
    FILE* f_ = nullptr;
};

// What extracting an entry needs from its directory record.
struct Item {
    uint16_t flags = 0;
    uint16_t method = 0;
    uint32_t crc = 0;
    uint64_t compressed = 0;
    uint64_t localHeader = 0;  // absolute offset in the file
};

struct InflateStream {
    z_stream zs{};
    bool ready = false;
    ~InflateStream() {
        if (ready) inflateEnd(&zs);
    }
};

class ZlibReader : public ZipReader {
public:
    bool load(const std::string& path, std::string& error);

    const std::vector<ZipEntry>& entries() const override { return entries_; }
    bool extract(size_t index, const DataSink& sink, std::string& error) override;

private:
    bool readDirectory(uint64_t fileSize, std::string& error);
    bool copyStored(const Item& it, uint64_t size, const DataSink& sink, uint32_t& crc,
                    std::string& error);
    bool inflateData(const Item& it, uint64_t size, const DataSink& sink, uint32_t& crc,
                     std::string& error);

    File file_;
    uint64_t dataLimit_ = 0;  // where the central directory starts: entry data ends before it
    std::vector<ZipEntry> entries_;
    std::vector<Item> items_;
};

bool ZlibReader::load(const std::string& path, std::string& error) {
    uint64_t fileSize = 0;
    if (!file_.open(path)) {
        error = "cannot open the file";
        return false;
    }
    if (!file_.size(fileSize)) {
        error = "cannot read the file";
        return false;
    }
    return readDirectory(fileSize, error);
}

bool ZlibReader::readDirectory(uint64_t fileSize, std::string& error) {
    error = ziperr::kNotZip;
    if (fileSize < kEndSize) return false;

    // The end record sits in the last 22 bytes plus at most a 64 KiB comment;
    // the one whose comment length reaches exactly to the end of the file wins.
    const size_t tailLen = static_cast<size_t>(std::min<uint64_t>(fileSize, kEndSize + kMaxComment));
    std::vector<unsigned char> tail(tailLen);
    if (!file_.readAt(fileSize - tailLen, tail.data(), tailLen)) return false;
    size_t at = tailLen;
    for (size_t i = tailLen - kEndSize + 1; i-- > 0;) {
        if (le32(&tail[i]) == kEndSig && i + kEndSize + le16(&tail[i + 20]) == tailLen) {
            at = i;
            break;
        }
    }
    if (at == tailLen) return false;
    const unsigned char* end = &tail[at];
    const uint64_t endPos = fileSize - tailLen + at;
    const uint16_t disk = le16(end + 4), dirDisk = le16(end + 6);
    const uint16_t onDisk = le16(end + 8), total = le16(end + 10);
    const uint32_t dirSize = le32(end + 12), dirOffset = le32(end + 16);

    if (total == 0xFFFF || dirSize == 0xFFFFFFFF || dirOffset == 0xFFFFFFFF) {
        error = "zip64 archives are not supported";
        return false;
    }
    if (disk != 0 || dirDisk != 0 || onDisk != total) {
        error = "multi-part archives are not supported";
        return false;
    }
    error = "the central directory is damaged";
    if (static_cast<uint64_t>(dirOffset) + dirSize > endPos) return false;
    if (static_cast<uint64_t>(total) * kCentralSize > dirSize) return false;
    if (dirSize > kMaxDirectory) {
        error = "the central directory is too large";
        return false;
    }
    // Bytes in front of the archive (a self-extractor's stub) shift every offset.
    const uint64_t base = endPos - dirOffset - dirSize;
    dataLimit_ = base + dirOffset;

    std::vector<unsigned char> dir(dirSize);
    if (dirSize > 0 && !file_.readAt(dataLimit_, dir.data(), dir.size())) return false;
    entries_.reserve(total);
    items_.reserve(total);
    size_t pos = 0;
    for (uint16_t k = 0; k < total; ++k) {
        if (dir.size() - pos < kCentralSize) return false;
        const unsigned char* h = &dir[pos];
        if (le32(h) != kCentralSig) return false;
        const size_t nameLen = le16(h + 28), extraLen = le16(h + 30), commentLen = le16(h + 32);
        const size_t recordLen = kCentralSize + nameLen + extraLen + commentLen;
        if (dir.size() - pos < recordLen) return false;
        Item it;
        it.flags = le16(h + 8);
        it.method = le16(h + 10);
        it.crc = le32(h + 16);
        const uint32_t compressed = le32(h + 20), size = le32(h + 24), local = le32(h + 42);
        if (compressed == 0xFFFFFFFF || size == 0xFFFFFFFF || local == 0xFFFFFFFF) {
            error = "zip64 archives are not supported";
            return false;
        }
        it.compressed = compressed;
        it.localHeader = base + local;
        ZipEntry e;
        e.name.assign(reinterpret_cast<const char*>(h + kCentralSize), nameLen);
        e.size = size;
        e.isFolder = !e.name.empty() && e.name.back() == '/';
        entries_.push_back(std::move(e));
        items_.push_back(it);
        pos += recordLen;
    }
    error.clear();
    return true;
}

bool ZlibReader::extract(size_t index, const DataSink& sink, std::string& error) {
    if (index >= items_.size()) {
        error = "no such entry";
        return false;
    }
    const Item& it = items_[index];
    const uint64_t size = entries_[index].size;
    if (it.flags & 1) {
        error = ziperr::kEncrypted;
        return false;
    }
    if (it.method != 0 && it.method != Z_DEFLATED) {
        error = "unsupported compression method " + std::to_string(it.method);
        return false;
    }
    // The local header repeats the name and carries its own extra field, whose
    // length may differ from the directory's; the data starts after both.
    unsigned char lh[kLocalSize];
    if (it.localHeader + kLocalSize > dataLimit_ || !file_.readAt(it.localHeader, lh, kLocalSize) ||
        le32(lh) != kLocalSig) {
        error = "the local header is damaged";
        return false;
    }
    const uint64_t dataStart = it.localHeader + kLocalSize + le16(lh + 26) + le16(lh + 28);
    if (dataStart > dataLimit_ || it.compressed > dataLimit_ - dataStart || !file_.seekTo(dataStart)) {
        error = "the archive is truncated";
        return false;
    }
    uint32_t crc = static_cast<uint32_t>(crc32(0L, Z_NULL, 0));
    const bool ok = it.method == 0 ? copyStored(it, size, sink, crc, error)
                                   : inflateData(it, size, sink, crc, error);
    if (!ok) return false;
    if (crc != it.crc) {
        error = ziperr::kCrc;
        return false;
    }
    return true;
}

// Stored data: the bytes themselves, exactly as many as the directory says.
bool ZlibReader::copyStored(const Item& it, uint64_t size, const DataSink& sink, uint32_t& crc,
                            std::string& error) {
    if (it.compressed != size) {
        error = ziperr::kSize;
        return false;
    }
    std::vector<unsigned char> buf(static_cast<size_t>(std::min<uint64_t>(kChunk, size)));
    uint64_t left = size;
    while (left > 0) {
        const size_t n = static_cast<size_t>(std::min<uint64_t>(left, buf.size()));
        if (!file_.readNext(buf.data(), n)) {
            error = "the archive is truncated";
            return false;
        }
        crc = static_cast<uint32_t>(crc32(crc, buf.data(), static_cast<uInt>(n)));
        if (!sink(reinterpret_cast<const char*>(buf.data()), n)) {
            error = ziperr::kSink;
            return false;
        }
        left -= n;
    }
    return true;
}

// Deflated data: raw inflate (no zlib header) over exactly the entry's
// compressed bytes; more output than the directory promised stops it early.
bool ZlibReader::inflateData(const Item& it, uint64_t size, const DataSink& sink, uint32_t& crc,
                             std::string& error) {
    InflateStream s;
    if (inflateInit2(&s.zs, -MAX_WBITS) != Z_OK) {
        error = "zlib cannot start inflating";
        return false;
    }
    s.ready = true;
    std::vector<unsigned char> in(kChunk), out(kChunk);
    uint64_t inLeft = it.compressed, total = 0;
    for (;;) {
        if (s.zs.avail_in == 0 && inLeft > 0) {
            const size_t n = static_cast<size_t>(std::min<uint64_t>(inLeft, in.size()));
            if (!file_.readNext(in.data(), n)) {
                error = "the archive is truncated";
                return false;
            }
            s.zs.next_in = in.data();
            s.zs.avail_in = static_cast<uInt>(n);
            inLeft -= n;
        }
        s.zs.next_out = out.data();
        s.zs.avail_out = static_cast<uInt>(out.size());
        const int rc = inflate(&s.zs, Z_NO_FLUSH);
        // Z_BUF_ERROR means no progress: with every input byte given, the
        // stream ended without its final block.
        if (rc != Z_OK && rc != Z_STREAM_END && !(rc == Z_BUF_ERROR && (s.zs.avail_in > 0 || inLeft > 0))) {
            error = ziperr::kData;
            return false;
        }
        const size_t produced = out.size() - s.zs.avail_out;
        total += produced;
        if (total > size) {
            error = ziperr::kSize;
            return false;
        }
        if (produced > 0) {
            crc = static_cast<uint32_t>(crc32(crc, out.data(), static_cast<uInt>(produced)));
            if (!sink(reinterpret_cast<const char*>(out.data()), produced)) {
                error = ziperr::kSink;
                return false;
            }
        }
        if (rc == Z_STREAM_END) break;
        if (s.zs.avail_in == 0 && inLeft == 0 && produced == 0) {
            error = ziperr::kData;
            return false;
        }
    }
    if (total != size) {
        error = ziperr::kSize;
        return false;
    }
    return true;
}

}  // namespace

std::unique_ptr<ZipReader> openZipZlib(const std::string& readablePath, std::string& error) {
    auto reader = std::make_unique<ZlibReader>();
    if (!reader->load(readablePath, error)) return nullptr;
    return reader;
}

}  // namespace standins

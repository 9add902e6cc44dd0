// The zip reader over minizip's unzip API (Linux).
#include <unzip.h>

#include <cstdio>
#include <string>
#include <vector>

#include "standins/zip_archive.h"

namespace standins {

namespace {

constexpr size_t kChunk = 64 * 1024;

class MinizipReader : public ZipReader {
public:
    explicit MinizipReader(unzFile zf) : zf_(zf) {}
    ~MinizipReader() override { unzClose(zf_); }
    MinizipReader(const MinizipReader&) = delete;
    MinizipReader& operator=(const MinizipReader&) = delete;

    // Reads the central directory once; false with a reason when it is unreadable.
    bool list(std::string& error) {
        unz_global_info64 global{};
        if (unzGetGlobalInfo64(zf_, &global) != UNZ_OK) {
            error = ziperr::kNotZip;
            return false;
        }
        int rc = unzGoToFirstFile(zf_);
        while (rc == UNZ_OK) {
            unz_file_info64 info{};
            if (unzGetCurrentFileInfo64(zf_, &info, nullptr, 0, nullptr, 0, nullptr, 0) != UNZ_OK)
                break;
            std::string name(info.size_filename, '\0');
            if (unzGetCurrentFileInfo64(zf_, &info, name.data(), static_cast<uLong>(name.size() + 1),
                                        nullptr, 0, nullptr, 0) != UNZ_OK)
                break;
            unz64_file_pos pos{};
            if (unzGetFilePos64(zf_, &pos) != UNZ_OK) break;
            ZipEntry e;
            e.size = info.uncompressed_size;
            e.isFolder = !name.empty() && name.back() == '/';
            e.name = std::move(name);
            entries_.push_back(std::move(e));
            positions_.push_back(Position{pos, info.flag, info.compression_method});
            rc = unzGoToNextFile(zf_);
        }
        if (rc != UNZ_END_OF_LIST_OF_FILE || entries_.size() != global.number_entry) {
            error = "the central directory is damaged";
            return false;
        }
        return true;
    }

    const std::vector<ZipEntry>& entries() const override { return entries_; }

    bool extract(size_t index, const DataSink& sink, std::string& error) override {
        if (index >= entries_.size()) {
            error = "no such entry";
            return false;
        }
        Position& p = positions_[index];
        if (p.flag & 1) {
            error = ziperr::kEncrypted;
            return false;
        }
        if (p.method != 0 && p.method != Z_DEFLATED) {
            error = "unsupported compression method " + std::to_string(p.method);
            return false;
        }
        if (unzGoToFilePos64(zf_, &p.pos) != UNZ_OK || unzOpenCurrentFile(zf_) != UNZ_OK) {
            error = "the local header is damaged";
            return false;
        }
        std::vector<char> buf(kChunk);
        uint64_t total = 0;
        bool ok = true;
        for (;;) {
            int n = unzReadCurrentFile(zf_, buf.data(), static_cast<unsigned>(buf.size()));
            if (n < 0) {
                error = n == UNZ_ERRNO ? "the archive is truncated" : ziperr::kData;
                ok = false;
                break;
            }
            if (n == 0) break;
            total += static_cast<uint64_t>(n);
            // More bytes than the directory promised: stop before writing them.
            if (total > entries_[index].size) {
                error = ziperr::kSize;
                ok = false;
                break;
            }
            if (!sink(buf.data(), static_cast<size_t>(n))) {
                error = ziperr::kSink;
                ok = false;
                break;
            }
        }
        // minizip checks the CRC only when the whole entry was read, so a
        // short stream is caught by the byte count first.
        if (ok && total != entries_[index].size) {
            error = ziperr::kSize;
            ok = false;
        }
        int closeRc = unzCloseCurrentFile(zf_);
        if (ok && closeRc == UNZ_CRCERROR) {
            error = ziperr::kCrc;
            ok = false;
        } else if (ok && closeRc != UNZ_OK) {
            error = ziperr::kData;
            ok = false;
        }
        return ok;
    }

private:
    struct Position {
        unz64_file_pos pos;
        uLong flag;
        uLong method;
    };
    unzFile zf_;
    std::vector<ZipEntry> entries_;
    std::vector<Position> positions_;
};

}  // namespace

std::unique_ptr<ZipReader> openZipMinizip(const std::string& readablePath, std::string& error) {
    if (FILE* f = std::fopen(readablePath.c_str(), "rb")) {
        std::fclose(f);
    } else {
        error = "cannot open the file";
        return nullptr;
    }
    unzFile zf = unzOpen64(readablePath.c_str());
    if (!zf) {
        error = ziperr::kNotZip;
        return nullptr;
    }
    auto reader = std::make_unique<MinizipReader>(zf);
    if (!reader->list(error)) return nullptr;
    return reader;
}

}  // namespace standins

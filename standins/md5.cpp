#include "standins/md5.h"

#include <cstdio>
#include <vector>

namespace standins {

namespace {

struct FileCloser {
    void operator()(FILE* f) const { std::fclose(f); }
};

}  // namespace

bool md5File(const std::string& readablePath, size_t blockSize, std::string& hexOut,
             std::string& error) {
    std::unique_ptr<FILE, FileCloser> f(std::fopen(readablePath.c_str(), "rb"));
    if (!f) {
        error = "cannot open " + readablePath;
        return false;
    }
    std::unique_ptr<Md5Hasher> hasher = newMd5Hasher(error);
    if (!hasher) return false;

    std::vector<unsigned char> buf;
    if (blockSize == 0) {
        // The whole file in memory, then one update.
        constexpr size_t kStep = 1 << 20;
        size_t used = 0;
        for (;;) {
            buf.resize(used + kStep);
            const size_t n = std::fread(buf.data() + used, 1, kStep, f.get());
            used += n;
            if (n < kStep) break;
        }
        buf.resize(used);
        if (std::ferror(f.get())) {
            error = "cannot read " + readablePath;
            return false;
        }
        if (!hasher->update(buf.data(), buf.size())) {
            error = "MD5 update failed";
            return false;
        }
    } else {
        buf.resize(blockSize);
        for (;;) {
            const size_t n = std::fread(buf.data(), 1, blockSize, f.get());
            if (n > 0 && !hasher->update(buf.data(), n)) {
                error = "MD5 update failed";
                return false;
            }
            if (n < blockSize) break;
        }
        if (std::ferror(f.get())) {
            error = "cannot read " + readablePath;
            return false;
        }
    }
    unsigned char digest[16];
    if (!hasher->finish(digest)) {
        error = "MD5 could not be completed";
        return false;
    }
    static const char kHex[] = "0123456789abcdef";
    hexOut.clear();
    for (unsigned char b : digest) {
        hexOut += kHex[b >> 4];
        hexOut += kHex[b & 15];
    }
    return true;
}

}  // namespace standins

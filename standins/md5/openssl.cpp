// MD5 through OpenSSL's EVP interface (Linux).
#include <openssl/evp.h>

#include <cstdio>
#include <vector>

#include "standins/md5.h"

namespace standins {

namespace {

class OpenSslMd5 : public Md5Hasher {
public:
    explicit OpenSslMd5(EVP_MD_CTX* ctx) : ctx_(ctx) {}
    ~OpenSslMd5() override { EVP_MD_CTX_free(ctx_); }
    OpenSslMd5(const OpenSslMd5&) = delete;
    OpenSslMd5& operator=(const OpenSslMd5&) = delete;

    bool update(const unsigned char* data, size_t size) override {
        return EVP_DigestUpdate(ctx_, data, size) == 1;
    }
    bool finish(unsigned char digest[16]) override {
        unsigned int len = 0;
        return EVP_DigestFinal_ex(ctx_, digest, &len) == 1 && len == 16;
    }

private:
    EVP_MD_CTX* ctx_;
};

}  // namespace

std::unique_ptr<Md5Hasher> newMd5Hasher(std::string& error) {
    EVP_MD_CTX* ctx = EVP_MD_CTX_new();
    if (!ctx) {
        error = "OpenSSL cannot allocate a digest";
        return nullptr;
    }
    auto hasher = std::make_unique<OpenSslMd5>(ctx);
    if (EVP_DigestInit_ex(ctx, EVP_md5(), nullptr) != 1) {
        error = "OpenSSL does not provide MD5";
        return nullptr;
    }
    return hasher;
}

bool sha256File(const std::string& readablePath, std::string& hexOut, std::string& error) {
    std::unique_ptr<FILE, int (*)(FILE*)> f(std::fopen(readablePath.c_str(), "rb"), &std::fclose);
    if (!f) {
        error = "cannot open " + readablePath;
        return false;
    }
    std::unique_ptr<EVP_MD_CTX, void (*)(EVP_MD_CTX*)> ctx(EVP_MD_CTX_new(), &EVP_MD_CTX_free);
    if (!ctx || EVP_DigestInit_ex(ctx.get(), EVP_sha256(), nullptr) != 1) {
        error = "OpenSSL does not provide SHA-256";
        return false;
    }
    std::vector<unsigned char> block(1 << 20);
    for (size_t n; (n = std::fread(block.data(), 1, block.size(), f.get())) > 0;)
        if (EVP_DigestUpdate(ctx.get(), block.data(), n) != 1) {
            error = "SHA-256 update failed";
            return false;
        }
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int len = 0;
    if (std::ferror(f.get()) || EVP_DigestFinal_ex(ctx.get(), digest, &len) != 1) {
        error = "cannot read " + readablePath;
        return false;
    }
    static const char kHex[] = "0123456789abcdef";
    hexOut.clear();
    for (unsigned int i = 0; i < len; ++i) {
        hexOut += kHex[digest[i] >> 4];
        hexOut += kHex[digest[i] & 15];
    }
    return true;
}

}  // namespace standins

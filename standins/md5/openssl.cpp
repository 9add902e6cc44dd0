// MD5 through OpenSSL's EVP interface (Linux).
#include <openssl/evp.h>

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

}  // namespace standins

// MD5 through CryptoAPI (Windows): a verify-only context of the base RSA
// provider, which every supported Windows version has.
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>
#include <wincrypt.h>

#include <algorithm>
#include <string>

#include "standins/md5.h"

namespace standins {

namespace {

class CryptoApiMd5 : public Md5Hasher {
public:
    CryptoApiMd5(HCRYPTPROV prov, HCRYPTHASH hash) : prov_(prov), hash_(hash) {}
    ~CryptoApiMd5() override {
        CryptDestroyHash(hash_);
        CryptReleaseContext(prov_, 0);
    }
    CryptoApiMd5(const CryptoApiMd5&) = delete;
    CryptoApiMd5& operator=(const CryptoApiMd5&) = delete;

    bool update(const unsigned char* data, size_t size) override {
        // CryptHashData takes a DWORD length: larger buffers go in slices.
        constexpr size_t kSlice = 1u << 30;
        while (size > 0) {
            const size_t n = std::min(size, kSlice);
            if (!CryptHashData(hash_, data, static_cast<DWORD>(n), 0)) return false;
            data += n;
            size -= n;
        }
        return true;
    }
    bool finish(unsigned char digest[16]) override {
        DWORD len = 16;
        return CryptGetHashParam(hash_, HP_HASHVAL, digest, &len, 0) && len == 16;
    }

private:
    HCRYPTPROV prov_;
    HCRYPTHASH hash_;
};

}  // namespace

std::unique_ptr<Md5Hasher> newMd5Hasher(std::string& error) {
    HCRYPTPROV prov = 0;
    if (!CryptAcquireContextA(&prov, nullptr, nullptr, PROV_RSA_FULL, CRYPT_VERIFYCONTEXT)) {
        error = "CryptAcquireContext failed (" + std::to_string(GetLastError()) + ")";
        return nullptr;
    }
    HCRYPTHASH hash = 0;
    if (!CryptCreateHash(prov, CALG_MD5, 0, 0, &hash)) {
        error = "CryptCreateHash failed (" + std::to_string(GetLastError()) + ")";
        CryptReleaseContext(prov, 0);
        return nullptr;
    }
    return std::make_unique<CryptoApiMd5>(prov, hash);
}

}  // namespace standins

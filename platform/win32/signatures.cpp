// Signatures with the system's own libraries, present since Windows 7:
// crypt32 decodes the public key, CNG (bcrypt) hashes and verifies.
#include <windows.h>
#include <bcrypt.h>
#include <wincrypt.h>

#include <algorithm>
#include <string>
#include <vector>

#include "platform/signatures.h"

namespace platform {

namespace {

struct Algorithm {
    BCRYPT_ALG_HANDLE h = nullptr;
    explicit Algorithm(LPCWSTR id) {
        if (BCryptOpenAlgorithmProvider(&h, id, nullptr, 0) != 0) h = nullptr;
    }
    ~Algorithm() {
        if (h) BCryptCloseAlgorithmProvider(h, 0);
    }
    Algorithm(const Algorithm&) = delete;
    Algorithm& operator=(const Algorithm&) = delete;
};

// SHA-256 of bytes; empty when CNG cannot compute it.
std::vector<UCHAR> digest(std::string_view bytes) {
    Algorithm alg(BCRYPT_SHA256_ALGORITHM);
    BCRYPT_HASH_HANDLE hash = nullptr;
    std::vector<UCHAR> out(32);
    if (!alg.h || BCryptCreateHash(alg.h, &hash, nullptr, 0, nullptr, 0, 0) != 0) return {};
    bool ok = true;
    // BCryptHashData takes a ULONG: long inputs go in pieces.
    for (size_t at = 0; ok && at < bytes.size(); at += 1u << 30) {
        const size_t n = std::min<size_t>(bytes.size() - at, 1u << 30);
        ok = BCryptHashData(hash, reinterpret_cast<PUCHAR>(const_cast<char*>(bytes.data() + at)),
                            static_cast<ULONG>(n), 0) == 0;
    }
    ok = ok && BCryptFinishHash(hash, out.data(), static_cast<ULONG>(out.size()), 0) == 0;
    BCryptDestroyHash(hash);
    return ok ? out : std::vector<UCHAR>();
}

class CngSignatures final : public Signatures {
public:
    std::string sha256(std::string_view bytes) override {
        static const char kHex[] = "0123456789abcdef";
        std::string out;
        for (UCHAR b : digest(bytes)) {
            out += kHex[b >> 4];
            out += kHex[b & 15];
        }
        return out;
    }

    SignatureCheck verifyRsaSha256(std::string_view publicKey, std::string_view data,
                                   std::string_view signature) override {
        CERT_PUBLIC_KEY_INFO* info = nullptr;
        DWORD size = 0;
        if (publicKey.empty() ||
            !CryptDecodeObjectEx(X509_ASN_ENCODING, X509_PUBLIC_KEY_INFO,
                                 reinterpret_cast<const BYTE*>(publicKey.data()), static_cast<DWORD>(publicKey.size()),
                                 CRYPT_DECODE_ALLOC_FLAG, nullptr, &info, &size))
            return SignatureCheck::KeyUnusable;
        BCRYPT_KEY_HANDLE key = nullptr;
        const bool rsa = info->Algorithm.pszObjId && std::string(info->Algorithm.pszObjId) == szOID_RSA_RSA;
        const DWORD bits = rsa ? CertGetPublicKeyLength(X509_ASN_ENCODING, info) : 0;
        const bool imported = bits >= 2048 && CryptImportPublicKeyInfoEx2(X509_ASN_ENCODING, info, 0, nullptr, &key);
        LocalFree(info);
        if (!imported) return SignatureCheck::KeyUnusable;
        SignatureCheck result = SignatureCheck::Bad;
        {
            std::vector<UCHAR> hash = digest(data);
            BCRYPT_PKCS1_PADDING_INFO padding{BCRYPT_SHA256_ALGORITHM};
            // Any answer but success (a wrong length included) is a signature that does not verify.
            result = !hash.empty() && !signature.empty() &&
                             BCryptVerifySignature(key, &padding, hash.data(), static_cast<ULONG>(hash.size()),
                                                   reinterpret_cast<PUCHAR>(const_cast<char*>(signature.data())),
                                                   static_cast<ULONG>(signature.size()), BCRYPT_PAD_PKCS1) == 0
                         ? SignatureCheck::Good
                         : SignatureCheck::Bad;
        }
        BCryptDestroyKey(key);
        return result;
    }
};

}  // namespace

Signatures& signatures() {
    static CngSignatures instance;
    return instance;
}

}  // namespace platform

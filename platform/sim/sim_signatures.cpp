// Signatures on the simulated machine: OpenSSL's libcrypto.
#include <openssl/evp.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <memory>

#include "platform/signatures.h"

namespace platform {

namespace {

struct KeyFree {
    void operator()(EVP_PKEY* k) const { EVP_PKEY_free(k); }
};
struct ContextFree {
    void operator()(EVP_MD_CTX* c) const { EVP_MD_CTX_free(c); }
};

class OpenSslSignatures final : public Signatures {
public:
    std::string sha256(std::string_view bytes) override {
        unsigned char digest[EVP_MAX_MD_SIZE];
        unsigned int length = 0;
        if (!EVP_Digest(bytes.data(), bytes.size(), digest, &length, EVP_sha256(), nullptr)) return {};
        static const char kHex[] = "0123456789abcdef";
        std::string out;
        for (unsigned int i = 0; i < length; ++i) {
            out += kHex[digest[i] >> 4];
            out += kHex[digest[i] & 15];
        }
        return out;
    }

    SignatureCheck verifyRsaSha256(std::string_view publicKey, std::string_view data,
                                   std::string_view signature) override {
        const auto* p = reinterpret_cast<const unsigned char*>(publicKey.data());
        std::unique_ptr<EVP_PKEY, KeyFree> key(d2i_PUBKEY(nullptr, &p, static_cast<long>(publicKey.size())));
        if (!key || EVP_PKEY_base_id(key.get()) != EVP_PKEY_RSA || EVP_PKEY_bits(key.get()) < 2048)
            return SignatureCheck::KeyUnusable;
        std::unique_ptr<EVP_MD_CTX, ContextFree> ctx(EVP_MD_CTX_new());
        EVP_PKEY_CTX* pctx = nullptr;
        if (!ctx || EVP_DigestVerifyInit(ctx.get(), &pctx, EVP_sha256(), nullptr, key.get()) != 1 ||
            EVP_PKEY_CTX_set_rsa_padding(pctx, RSA_PKCS1_PADDING) != 1)
            return SignatureCheck::KeyUnusable;
        const int ok = EVP_DigestVerify(ctx.get(), reinterpret_cast<const unsigned char*>(signature.data()),
                                        signature.size(), reinterpret_cast<const unsigned char*>(data.data()),
                                        data.size());
        return ok == 1 ? SignatureCheck::Good : SignatureCheck::Bad;
    }
};

}  // namespace

Signatures& signatures() {
    static OpenSslSignatures instance;
    return instance;
}

}  // namespace platform

// Digital signatures: the product list's signature is checked with what the
// system already has (CNG on Windows, OpenSSL on the simulated machine).
// One algorithm: RSASSA-PKCS1-v1_5 with SHA-256 (docs/third-party.md says why).
#pragma once

#include <string>
#include <string_view>

namespace platform {

enum class SignatureCheck {
    Good,         // the signature is the key holder's, over exactly these bytes
    Bad,          // it is not
    KeyUnusable,  // the key is not an RSA public key of 2048 bits or more
};

class Signatures {
public:
    virtual ~Signatures() = default;
    // SHA-256 of bytes, 64 lower-case hex digits.
    virtual std::string sha256(std::string_view bytes) = 0;
    // `publicKey` is a DER SubjectPublicKeyInfo (the body of a PEM
    // "PUBLIC KEY"); `signature` the raw big-endian signature.
    virtual SignatureCheck verifyRsaSha256(std::string_view publicKey, std::string_view data,
                                           std::string_view signature) = 0;
};

// The binding's implementation (each binding defines it).
Signatures& signatures();

}  // namespace platform

// The publisher's half of the product list's signature (OpenSSL): keys, the
// signature file "PDList.xml.sig", the list's serial and dates, the archive.
// The agent's half is tppatch/list_signature.h.
#pragma once

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace catalog {

struct SigningError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// A new RSA key pair: {private key PEM (PKCS#8), public key PEM}.
std::pair<std::string, std::string> GenerateKeyPair(int bits = 3072);
// The public key PEM of a private key PEM.
std::string PublicKeyPem(const std::string& privatePem);
// The key's id: SHA-256 of its public DER, as the agent names it.
std::string KeyId(const std::string& privatePem);
// The text of "PDList.xml.sig" for these exact bytes.
std::string SignatureFile(const std::string& listBytes, const std::string& privatePem);
// The list with serial, issued, validUntil and auOptionsSha256 set on its <pdlist> element
// (empty texts leave an attribute as it is).
std::string WithListMetadata(const std::string& list, const std::string& serial, const std::string& issued,
                             const std::string& validUntil, const std::string& auOptionsSha256 = "");
// SHA-256 of bytes, lower-case hex.
std::string Sha256Hex(const std::string& bytes);
// A zip archive of named files (stored deflated, fixed times).
void WriteZip(const std::string& path, const std::vector<std::pair<std::string, std::string>>& files);

}  // namespace catalog

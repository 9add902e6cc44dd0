// The product list's signature and freshness (docs/third-party.md).
//   "PDList.xml.sig", beside "PDList.xml" in "pdlist.zip": a detached
//   RSASSA-PKCS1-v1_5 SHA-256 signature over the list's exact bytes, naming
//   the key that made it.
//   The root <pdlist> states serial, issued and validUntil; the agent keeps
//   the highest serial it accepted in "PDListRecord.ini" in its program
//   folder and refuses a lower one, and a list whose validity has ended.
//   The root also names the SHA-256 of the archive's "AUOptions.xml", so the
//   signature covers that file too.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kpm {

// What "PDList.xml.sig" says.
struct ListSignature {
    std::string keyId;      // SHA-256 of the signing key's DER, lower-case hex
    std::string signature;  // raw bytes
};
constexpr size_t kMaxSignatureFile = 16 * 1024;
constexpr const char* kSignatureFormat = "kpmdwld-list-signature-1";
constexpr const char* kSignatureAlgorithm = "rsa-pkcs1-sha256";

// The signature file's text; nullopt, with why, when it is not one.
std::optional<ListSignature> ParseListSignature(std::string_view text, std::string& why);

// Base64 (RFC 4648, padded); blanks and line breaks skipped. nullopt when not Base64.
std::optional<std::string> DecodeBase64(std::string_view text);

// The DER bodies of the "PUBLIC KEY" blocks of a PEM text; each block that
// is not one is named in `problems`.
std::vector<std::string> PublicKeysFromPem(std::string_view pem, std::vector<std::string>& problems);

struct TrustedKey {
    std::string id;   // SHA-256 of `der`
    std::string der;  // SubjectPublicKeyInfo
    std::string origin;  // "built in" or the key file's path
};
// The maker's key, built in, and those of "PDListKeys.pem" in the program folder.
std::vector<TrustedKey> TrustedListKeys(std::vector<std::string>& problems);

// Serial, issue date and last valid day of a list, from its root element.
struct ListMetadata {
    uint64_t serial = 0;
    std::string issued, validUntil;  // yyyy-mm-dd
    std::string auOptionsSha256;     // the archive's AUOptions.xml, which the signature so covers; or empty
};
// Read with the agent's XML reader; nullopt, with why, when missing or malformed.
std::optional<ListMetadata> ReadListMetadata(const std::string& path, std::string& why);
// yyyymmdd of a yyyy-mm-dd date; 0 when it is not one.
int32_t ListDateNumber(std::string_view text);

// The signature of `list` against the trusted keys: empty when good, else why.
std::string CheckListSignature(std::string_view list, std::string_view signatureFile,
                               const std::vector<TrustedKey>& keys);
// Freshness against today (yyyymmdd) and the highest serial accepted so far.
std::string CheckListFreshness(const ListMetadata& m, int32_t today, uint64_t highestSerial);

// The whole check of an unpacked archive's folder: the signature, the
// metadata, freshness. Empty when the list is accepted (its serial then
// recorded, and `accepted` says which list it is), else why it is refused.
std::string CheckProductList(const std::string& folder, std::string& accepted);

// The record of the highest serial accepted: program folder + "\PDListRecord.ini".
std::string ListRecordPath();
// The serial it holds; 0 when none (or not a serial).
uint64_t HighestAcceptedSerial();

}  // namespace kpm

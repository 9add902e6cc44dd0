#include "sites/test_authority.h"

#include <openssl/bn.h>
#include <openssl/ec.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>

#include <atomic>
#include <cstdio>
#include <stdexcept>
#include <system_error>
#include <arpa/inet.h>
#include <unistd.h>

namespace sites {

namespace fs = std::filesystem;

namespace {

// Clocks of the machines that check these differ from the host's (a
// simulated day, a Wine prefix): a wide validity keeps that out of the way.
constexpr long kValidBefore = 30L * 24 * 3600;
constexpr long kValidAfter = 10L * 365 * 24 * 3600;

[[noreturn]] void fail(const std::string& what) { throw std::runtime_error("test authority: " + what); }

KeyPtr newKey() {
    KeyPtr key(EVP_EC_gen("P-256"));
    if (!key) fail("cannot make a key");
    return key;
}

// A dotted IPv4 address, which a certificate names as an address, not a host name.
bool isAddress(const std::string& name) {
    unsigned char bytes[4];
    return inet_pton(AF_INET, name.c_str(), bytes) == 1;
}

void addExtension(X509* cert, X509* issuer, int nid, const std::string& value) {
    X509V3_CTX ctx;
    X509V3_set_ctx_nodb(&ctx);
    X509V3_set_ctx(&ctx, issuer, cert, nullptr, nullptr, 0);
    X509_EXTENSION* ext = X509V3_EXT_conf_nid(nullptr, &ctx, nid, value.c_str());
    if (!ext) fail("cannot add extension " + value);
    X509_add_ext(cert, ext, -1);
    X509_EXTENSION_free(ext);
}

X509Ptr newCertificate(const std::string& commonName, EVP_PKEY* key) {
    X509Ptr cert(X509_new());
    if (!cert) fail("out of memory");
    X509_set_version(cert.get(), 2);
    unsigned char serial[16];
    RAND_bytes(serial, sizeof serial);
    serial[0] &= 0x7F;  // a positive serial
    BIGNUM* bn = BN_bin2bn(serial, sizeof serial, nullptr);
    BN_to_ASN1_INTEGER(bn, X509_get_serialNumber(cert.get()));
    BN_free(bn);
    X509_gmtime_adj(X509_getm_notBefore(cert.get()), -kValidBefore);
    X509_gmtime_adj(X509_getm_notAfter(cert.get()), kValidAfter);
    X509_set_pubkey(cert.get(), key);
    X509_NAME* name = X509_get_subject_name(cert.get());
    X509_NAME_add_entry_by_txt(name, "O", MBSTRING_ASC, reinterpret_cast<const unsigned char*>("KPM test sites"), -1,
                               -1, 0);
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char*>(commonName.c_str()),
                               -1, -1, 0);
    return cert;
}

void writePem(const fs::path& file, X509* cert, EVP_PKEY* key) {
    std::FILE* out = std::fopen(file.c_str(), "wb");
    if (!out) fail("cannot write " + file.string());
    bool ok = cert ? PEM_write_X509(out, cert) == 1 : PEM_write_PrivateKey(out, key, nullptr, nullptr, 0, nullptr, nullptr) == 1;
    ok = std::fclose(out) == 0 && ok;
    if (!ok) fail("cannot write " + file.string());
}

void make(const fs::path& folder) {
    static std::atomic<unsigned> counter{0};
    const fs::path temp = folder.string() + ".new-" + std::to_string(::getpid()) + "-" + std::to_string(++counter);
    fs::create_directories(temp);
    KeyPtr key = newKey();
    X509Ptr root = newCertificate("KPM test sites root", key.get());
    X509_set_issuer_name(root.get(), X509_get_subject_name(root.get()));
    addExtension(root.get(), root.get(), NID_basic_constraints, "critical,CA:TRUE");
    addExtension(root.get(), root.get(), NID_key_usage, "critical,keyCertSign,cRLSign");
    addExtension(root.get(), root.get(), NID_subject_key_identifier, "hash");
    if (X509_sign(root.get(), key.get(), EVP_sha256()) == 0) fail("cannot sign the root");
    writePem(temp / "ca.pem", root.get(), nullptr);
    writePem(temp / "ca-key.pem", nullptr, key.get());
    std::error_code ec;
    fs::rename(temp, folder, ec);
    if (ec) fs::remove_all(temp, ec);  // another server made it first: theirs is read
}

template <typename T, typename Reader>
T readPem(const fs::path& file, Reader read) {
    std::FILE* in = std::fopen(file.c_str(), "rb");
    if (!in) fail("cannot read " + file.string());
    T value(read(in, nullptr, nullptr, nullptr));
    std::fclose(in);
    if (!value) fail("cannot read " + file.string());
    return value;
}

}  // namespace

TestAuthority TestAuthority::openOrMake(const fs::path& folder) {
    if (!fs::exists(folder / "ca.pem")) {
        if (folder.has_parent_path()) fs::create_directories(folder.parent_path());
        make(folder);
    }
    TestAuthority a;
    a.folder_ = folder;
    a.root_ = readPem<X509Ptr>(folder / "ca.pem", PEM_read_X509);
    a.key_ = readPem<KeyPtr>(folder / "ca-key.pem", PEM_read_PrivateKey);
    return a;
}

SiteCertificate TestAuthority::issue(const std::vector<std::string>& names) const {
    if (names.empty()) fail("a site certificate needs a name");
    SiteCertificate site{nullptr, newKey()};
    site.certificate = newCertificate(names.front(), site.key.get());
    X509_set_issuer_name(site.certificate.get(), X509_get_subject_name(root_.get()));
    std::string alternatives;
    // An address is named twice: as an address (what OpenSSL matches) and as a
    // name (what Wine's SSL policy matches, comparing texts).
    for (const auto& n : names)
        alternatives += (alternatives.empty() ? "" : ",") + (isAddress(n) ? "IP:" + n + ",DNS:" : "DNS:") + n;
    X509* cert = site.certificate.get();
    addExtension(cert, root_.get(), NID_subject_alt_name, alternatives);
    addExtension(cert, root_.get(), NID_basic_constraints, "critical,CA:FALSE");
    addExtension(cert, root_.get(), NID_ext_key_usage, "serverAuth");
    addExtension(cert, root_.get(), NID_authority_key_identifier, "keyid:always");
    if (X509_sign(cert, key_.get(), EVP_sha256()) == 0) fail("cannot sign a site's certificate");
    return site;
}

}  // namespace sites

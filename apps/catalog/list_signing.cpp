#include "list_signing.h"

#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>
#include <zip.h>

#include <memory>
#include <regex>

namespace catalog {

namespace {

template <class T, void (*F)(T*)>
struct Free {
    void operator()(T* p) const { F(p); }
};
using Key = std::unique_ptr<EVP_PKEY, Free<EVP_PKEY, EVP_PKEY_free>>;
using Bio = std::unique_ptr<BIO, Free<BIO, BIO_free_all>>;
using Ctx = std::unique_ptr<EVP_MD_CTX, Free<EVP_MD_CTX, EVP_MD_CTX_free>>;

std::string bioText(BIO* b) {
    char* data = nullptr;
    const long n = BIO_get_mem_data(b, &data);
    return std::string(data, static_cast<size_t>(n));
}

Key readPrivate(const std::string& pem) {
    Bio in(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
    Key key(PEM_read_bio_PrivateKey(in.get(), nullptr, nullptr, nullptr));
    if (!key || EVP_PKEY_base_id(key.get()) != EVP_PKEY_RSA) throw SigningError("not an RSA private key (PEM)");
    if (EVP_PKEY_bits(key.get()) < 2048) throw SigningError("the key has fewer than 2048 bits");
    return key;
}

std::string publicDer(EVP_PKEY* key) {
    unsigned char* der = nullptr;
    const int n = i2d_PUBKEY(key, &der);
    if (n <= 0) throw SigningError("the public key cannot be written");
    std::string out(reinterpret_cast<char*>(der), static_cast<size_t>(n));
    OPENSSL_free(der);
    return out;
}

std::string hex(const unsigned char* p, size_t n) {
    static const char kHex[] = "0123456789abcdef";
    std::string out;
    for (size_t i = 0; i < n; ++i) out += {kHex[p[i] >> 4], kHex[p[i] & 15]};
    return out;
}

std::string base64(const std::string& bytes) {
    std::string out(4 * ((bytes.size() + 2) / 3) + 1, '\0');
    const int n = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(out.data()),
                                  reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<int>(bytes.size()));
    out.resize(static_cast<size_t>(n));
    return out;
}

}  // namespace

std::pair<std::string, std::string> GenerateKeyPair(int bits) {
    std::unique_ptr<EVP_PKEY_CTX, Free<EVP_PKEY_CTX, EVP_PKEY_CTX_free>> ctx(EVP_PKEY_CTX_new_id(EVP_PKEY_RSA, nullptr));
    EVP_PKEY* raw = nullptr;
    if (!ctx || EVP_PKEY_keygen_init(ctx.get()) != 1 || EVP_PKEY_CTX_set_rsa_keygen_bits(ctx.get(), bits) != 1 ||
        EVP_PKEY_keygen(ctx.get(), &raw) != 1)
        throw SigningError("OpenSSL could not make an RSA key");
    Key key(raw);
    Bio priv(BIO_new(BIO_s_mem()));
    if (PEM_write_bio_PrivateKey(priv.get(), key.get(), nullptr, nullptr, 0, nullptr, nullptr) != 1)
        throw SigningError("the private key cannot be written");
    Bio pub(BIO_new(BIO_s_mem()));
    PEM_write_bio_PUBKEY(pub.get(), key.get());
    return {bioText(priv.get()), bioText(pub.get())};
}

std::string PublicKeyPem(const std::string& privatePem) {
    Key key = readPrivate(privatePem);
    Bio pub(BIO_new(BIO_s_mem()));
    PEM_write_bio_PUBKEY(pub.get(), key.get());
    return bioText(pub.get());
}

std::string KeyId(const std::string& privatePem) {
    return Sha256Hex(publicDer(readPrivate(privatePem).get()));
}

std::string SignatureFile(const std::string& listBytes, const std::string& privatePem) {
    Key key = readPrivate(privatePem);
    Ctx ctx(EVP_MD_CTX_new());
    EVP_PKEY_CTX* pctx = nullptr;
    size_t length = 0;
    if (!ctx || EVP_DigestSignInit(ctx.get(), &pctx, EVP_sha256(), nullptr, key.get()) != 1 ||
        EVP_PKEY_CTX_set_rsa_padding(pctx, RSA_PKCS1_PADDING) != 1 ||
        EVP_DigestSign(ctx.get(), nullptr, &length, reinterpret_cast<const unsigned char*>(listBytes.data()),
                       listBytes.size()) != 1)
        throw SigningError("OpenSSL could not sign");
    std::string signature(length, '\0');
    if (EVP_DigestSign(ctx.get(), reinterpret_cast<unsigned char*>(signature.data()), &length,
                       reinterpret_cast<const unsigned char*>(listBytes.data()), listBytes.size()) != 1)
        throw SigningError("OpenSSL could not sign");
    signature.resize(length);
    return "format: kpmdwld-list-signature-1\nalgorithm: rsa-pkcs1-sha256\nkey: " + KeyId(privatePem) +
           "\nsignature: " + base64(signature) + "\n";
}

std::string Sha256Hex(const std::string& bytes) {
    unsigned char digest[32];
    unsigned int n = 0;
    EVP_Digest(bytes.data(), bytes.size(), digest, &n, EVP_sha256(), nullptr);
    return hex(digest, n);
}

std::string WithListMetadata(const std::string& list, const std::string& serial, const std::string& issued,
                             const std::string& validUntil, const std::string& auOptionsSha256) {
    std::smatch m;
    static const std::regex root("<pdlist\\b[^>]*>");
    if (!std::regex_search(list, m, root)) throw SigningError("the list has no <pdlist> element");
    std::string tag = m.str(0);
    const bool selfClosing = tag.size() >= 2 && tag[tag.size() - 2] == '/';
    for (const auto& [name, value] : {std::pair<std::string, std::string>{"serial", serial}, {"issued", issued},
                                      {"validUntil", validUntil},
                                      {"auOptionsSha256", auOptionsSha256}}) {
        if (value.empty()) continue;
        const std::regex existing("\\s" + name + "\\s*=\\s*(\"[^\"]*\"|'[^']*')");
        const std::string attribute = " " + name + "=\"" + value + "\"";
        if (std::regex_search(tag, existing)) tag = std::regex_replace(tag, existing, attribute);
        else tag.insert(tag.size() - (selfClosing ? 2 : 1), attribute);
    }
    return list.substr(0, static_cast<size_t>(m.position(0))) + tag +
           list.substr(static_cast<size_t>(m.position(0) + m.length(0)));
}

void WriteZip(const std::string& path, const std::vector<std::pair<std::string, std::string>>& files) {
    zipFile zf = zipOpen64(path.c_str(), APPEND_STATUS_CREATE);
    if (!zf) throw SigningError("cannot create " + path);
    bool ok = true;
    for (const auto& [name, bytes] : files) {
        zip_fileinfo info{};
        info.tmz_date.tm_year = 2026;
        info.tmz_date.tm_mday = 1;
        ok = ok && zipOpenNewFileInZip64(zf, name.c_str(), &info, nullptr, 0, nullptr, 0, nullptr, Z_DEFLATED,
                                         Z_DEFAULT_COMPRESSION, bytes.size() > 0xFFFFFFFFu) == ZIP_OK &&
             zipWriteInFileInZip(zf, bytes.data(), static_cast<unsigned>(bytes.size())) == ZIP_OK &&
             zipCloseFileInZip(zf) == ZIP_OK;
    }
    if (zipClose(zf, nullptr) != ZIP_OK || !ok) throw SigningError("cannot write " + path);
}

}  // namespace catalog

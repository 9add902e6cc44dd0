// A certificate authority for the local sites, made by the project for its
// tests and demos: it never leaves the scratch folder it was made in, and only
// a simulated machine (or a Wine prefix) told to trust it does.
//
// The folder holds "ca.pem" (the root's certificate: what a machine trusts)
// and "ca-key.pem". It is made once, whole (a folder renamed into place), and
// read by whoever comes after, so concurrent servers share one root.
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <openssl/evp.h>
#include <openssl/x509.h>

namespace sites {

struct X509Free {
    void operator()(X509* x) const { X509_free(x); }
};
struct KeyFree {
    void operator()(EVP_PKEY* k) const { EVP_PKEY_free(k); }
};
using X509Ptr = std::unique_ptr<X509, X509Free>;
using KeyPtr = std::unique_ptr<EVP_PKEY, KeyFree>;

struct SiteCertificate {
    X509Ptr certificate;
    KeyPtr key;
};

class TestAuthority {
public:
    // Reads the authority in `folder`, making it first when there is none.
    // Throws std::runtime_error when it can be neither read nor made.
    static TestAuthority openOrMake(const std::filesystem::path& folder);

    std::filesystem::path rootFile() const { return folder_ / "ca.pem"; }

    // A certificate for these host names or IPv4 addresses (the first is the
    // subject's name), with a new key.
    SiteCertificate issue(const std::vector<std::string>& names) const;

private:
    std::filesystem::path folder_;
    X509Ptr root_;
    KeyPtr key_;
};

}  // namespace sites

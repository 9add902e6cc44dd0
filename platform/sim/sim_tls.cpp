#include "platform/sim/sim_tls.h"

#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>

#include <cstdio>

#include "standins/transfer.h"

namespace platform::sim {

namespace {

// A new store holding the roots' certificates only, in place of whatever
// libcurl loaded.
CURLcode useRootsOnly(CURL*, void* sslContext, void* roots) {
    X509_STORE* store = X509_STORE_new();
    if (!store) return CURLE_OUT_OF_MEMORY;
    const auto* file = static_cast<const std::filesystem::path*>(roots);
    if (!file->empty()) {
        if (std::FILE* in = std::fopen(file->c_str(), "rb")) {
            while (X509* cert = PEM_read_X509(in, nullptr, nullptr, nullptr)) {
                X509_STORE_add_cert(store, cert);
                X509_free(cert);
            }
            std::fclose(in);
        }
    }
    SSL_CTX_set_cert_store(static_cast<SSL_CTX*>(sslContext), store);
    return CURLE_OK;
}

}  // namespace

void trustOnly(CURL* curl, const std::filesystem::path& roots) {
    curl_easy_setopt(curl, CURLOPT_CAINFO, nullptr);
    curl_easy_setopt(curl, CURLOPT_CAPATH, nullptr);
    curl_easy_setopt(curl, CURLOPT_SSL_VERIFYPEER, 1L);
    curl_easy_setopt(curl, CURLOPT_SSL_VERIFYHOST, 2L);
    curl_easy_setopt(curl, CURLOPT_SSL_CTX_FUNCTION, &useRootsOnly);
    curl_easy_setopt(curl, CURLOPT_SSL_CTX_DATA, const_cast<std::filesystem::path*>(&roots));
}

std::string certificateProblem(CURLcode code, const std::string& curlError, const std::string& host) {
    if (code != CURLE_PEER_FAILED_VERIFICATION) return {};
    // libcurl checks the name itself, after the chain, and says so in these words.
    return curlError.find("target host name") != std::string::npos ? standins::reason::certificateForAnotherHost(host)
                                                                   : standins::reason::untrustedCertificate(host);
}

}  // namespace platform::sim

// HTTPS on the simulated machine. A server is trusted when its certificate
// chains to one of the roots that machine.ini [Certificates] Roots names (the
// machine's root store; none named: nothing is trusted) and names the host
// the URL asks for. The host's own trust store plays no part.
#pragma once

#include <curl/curl.h>

#include <filesystem>
#include <string>

namespace platform::sim {

// Makes `curl` verify servers against exactly the certificates of `roots`.
// `roots` must outlive the transfer.
void trustOnly(CURL* curl, const std::filesystem::path& roots);

// Why a finished transfer failed on the server's certificate (in the words
// every transport uses), or empty when it did not. `curlError`: the
// transfer's CURLOPT_ERRORBUFFER.
std::string certificateProblem(CURLcode code, const std::string& curlError, const std::string& host);

}  // namespace platform::sim

// The system's URL library: URLDownloadToFileA.
#pragma once

#include <cstdint>
#include <string>

namespace platform {

class Internet {
public:
    virtual ~Internet() = default;
    // URLDownloadToFileA(no caller, url, path, 0, no callback): its HRESULT,
    // 0 (S_OK) when the file was written.
    virtual int32_t urlDownloadToFile(const std::string& url, const std::string& path) = 0;
};

// URL-library results the bindings report.
namespace inet {
constexpr int32_t CannotConnect = static_cast<int32_t>(0x800C0004);     // INET_E_CANNOT_CONNECT
constexpr int32_t ResourceNotFound = static_cast<int32_t>(0x800C0005);  // INET_E_RESOURCE_NOT_FOUND
constexpr int32_t DownloadFailure = static_cast<int32_t>(0x800C0008);   // INET_E_DOWNLOAD_FAILURE
constexpr int32_t Fail = static_cast<int32_t>(0x80004005);              // E_FAIL
}  // namespace inet

}  // namespace platform

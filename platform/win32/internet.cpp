#include <windows.h>
#include <urlmon.h>

#include "platform/internet.h"
#include "platform/win32/bindings.h"

namespace platform::win32 {

namespace {

class Win32Internet final : public Internet {
public:
    int32_t urlDownloadToFile(const std::string& url, const std::string& path) override {
        return static_cast<int32_t>(URLDownloadToFileA(nullptr, url.c_str(), path.c_str(), 0, nullptr));
    }
};

}  // namespace

std::unique_ptr<Internet> newInternet() { return std::make_unique<Win32Internet>(); }

}  // namespace platform::win32

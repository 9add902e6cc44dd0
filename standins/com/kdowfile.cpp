// KDowFile.dll, the stand-in for the maker's download library on Windows
// (Wine) test machines: the exports of platform/maker_exports.h over one
// process-wide standins::AsyncDownloads whose transfers go through WinINet
// and the stand-ins' network.ini.
#include <windows.h>

#include <memory>
#include <mutex>

#include "platform/maker_exports.h"
#include "standins/async_downloads.h"
#include "standins/com/win32_standin_host.h"

extern "C" long KPM_MAKER_CALL AsyncDownloadFile(const char* url, const char* destination);  // KDowFile.def
extern "C" long KPM_MAKER_CALL GetDownloadFinalStatus(long job, long long* bytesReceived);

namespace {

namespace exports = platform::maker_exports;
// Checked against the declared entry types, so the two cannot drift apart.
[[maybe_unused]] constexpr exports::AsyncDownloadFileFn kStart = &AsyncDownloadFile;
[[maybe_unused]] constexpr exports::GetDownloadFinalStatusFn kStatus = &GetDownloadFinalStatus;

// The caller sleeps between polls itself: a status query answers at once.
constexpr unsigned kStatusWaitMs = 0;

// Made on first use and never destroyed. Download threads may still run when
// the process ends or the library is released, so the library pins itself in
// memory, and no destructor joins threads under the loader lock.
standins::AsyncDownloads& downloads() {
    static std::once_flag once;
    static standins::AsyncDownloads* engine = nullptr;
    std::call_once(once, [] {
        HMODULE self = nullptr;
        GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_PIN,
                           reinterpret_cast<LPCSTR>(&downloads), &self);
        engine = new standins::AsyncDownloads(standins::win32::newWin32StandinHost());
    });
    return *engine;
}

}  // namespace

extern "C" long KPM_MAKER_CALL AsyncDownloadFile(const char* url, const char* destination) {
    if (!url || !destination) return 0;
    try {
        return downloads().start(url, destination);
    } catch (...) {
        return 0;
    }
}

extern "C" long KPM_MAKER_CALL GetDownloadFinalStatus(long job, long long* bytesReceived) {
    long long bytes = 0;
    long status = -1;
    try {
        status = downloads().status(job, bytes, kStatusWaitMs);
    } catch (...) {
        status = 2;
    }
    if (bytesReceived) *bytesReceived = bytes;
    return status;
}

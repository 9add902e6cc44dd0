// The exports of the maker's download and checksum libraries, as the program
// calls them and as the stand-in DLLs implement them. The libraries do not
// publish their interface; this header is the one statement of it.
//
// KDowFile.dll
//   long AsyncDownloadFile(const char* url, const char* destination);
//     Starts an HTTP download of `url` into the file `destination` (an ANSI
//     Windows path) on a thread of the library's own and returns at once:
//     the download's number (above 0), or 0 when it could not be started
//     (no URL, no destination, its folder missing). The file is written
//     under a temporary name beside `destination` and renamed into place only
//     when the whole body has arrived; a failed download leaves nothing.
//   long GetDownloadFinalStatus(long job, long long* bytesReceived);
//     0 running, 1 completed, 2 failed, -1 no such download (the values of
//     platform::kdowfile). `bytesReceived` (may be null) gets the body bytes
//     received so far. A transfer that receives nothing for the library's
//     stall limit (30 seconds) fails by itself.
//
// KGnMD5.dll
//   long KGetMD5(const char* path, char* md5);
//   long KGetMD5WBlock(const char* path, char* md5, long blockSize);
//     The MD5 of the file at `path` as 32 lower-case hex digits and a NUL
//     into `md5` (33 bytes); 1 on success, 0 when the file cannot be read.
//     KGetMD5 reads the file whole, KGetMD5WBlock in blocks of `blockSize`
//     bytes (65536 when 0 or less); both give the same text.
//
// All are __stdcall on 32-bit Windows, exported without decoration.
#pragma once

#if defined(_WIN32) && !defined(_WIN64)
#define KPM_MAKER_CALL __stdcall
#else
#define KPM_MAKER_CALL
#endif

namespace platform::maker_exports {

using AsyncDownloadFileFn = long(KPM_MAKER_CALL*)(const char* url, const char* destination);
using GetDownloadFinalStatusFn = long(KPM_MAKER_CALL*)(long job, long long* bytesReceived);
using KGetMD5Fn = long(KPM_MAKER_CALL*)(const char* path, char* md5);
using KGetMD5WBlockFn = long(KPM_MAKER_CALL*)(const char* path, char* md5, long blockSize);

constexpr const char* kDownloadLibrary = "KDowFile.dll";
constexpr const char* kChecksumLibrary = "KGnMD5.dll";
constexpr long kDefaultMd5Block = 65536;

}  // namespace platform::maker_exports

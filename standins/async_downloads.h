// The engine of the download library stand-in (KDowFile.dll's
// AsyncDownloadFile / GetDownloadFinalStatus): each download runs on a
// thread of its own; the caller polls for its outcome.
//
// The body goes to the file target's temporary file on the download's
// thread; the file is put in place (commit) by the status query that first
// sees the transfer done, on the caller's thread. A download nobody asks
// about again is never put in place, and one that failed leaves nothing.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "standins/transfer.h"

namespace standins {

class AsyncDownloads {
public:
    explicit AsyncDownloads(std::shared_ptr<StandinHost> host);
    // Cancels what still runs and waits for the threads.
    ~AsyncDownloads();
    AsyncDownloads(const AsyncDownloads&) = delete;
    AsyncDownloads& operator=(const AsyncDownloads&) = delete;

    // The download's number (above 0), or 0 when it could not be started.
    long start(const std::string& url, const std::string& destination);
    // platform::kdowfile values. While the download runs, waits up to
    // `waitMs` for its end before answering, so that a caller whose sleeps
    // take no real time neither spins nor sees a transfer that ends within
    // the wait as still running (a pass on a frozen clock then logs the same
    // polls every time).
    long status(long job, long long& bytesReceived, unsigned waitMs);

private:
    struct Job {
        std::unique_ptr<FileTarget> target;
        std::thread thread;
        std::atomic<uint64_t> bytes{0};
        std::atomic<bool> cancel{false};
        bool done = false;       // guarded by mutex_
        bool ok = false;         // guarded by mutex_
        bool settled = false;    // committed or abandoned (caller's thread)
    };

    std::shared_ptr<StandinHost> host_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::map<long, std::unique_ptr<Job>> jobs_;
    long next_ = 1;
};

}  // namespace standins

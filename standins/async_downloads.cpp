#include "standins/async_downloads.h"

#include <chrono>

namespace standins {

namespace {
// The values of platform::kdowfile (the stand-in DLLs do not link the platform library).
constexpr long kRunning = 0, kCompleted = 1, kFailed = 2, kUnknownJob = -1;
}  // namespace

AsyncDownloads::AsyncDownloads(std::shared_ptr<StandinHost> host) : host_(std::move(host)) {}

AsyncDownloads::~AsyncDownloads() {
    for (auto& [id, job] : jobs_) job->cancel = true;
    for (auto& [id, job] : jobs_) {
        if (job->thread.joinable()) job->thread.join();
        if (!job->settled) job->target->abandon();
    }
}

long AsyncDownloads::start(const std::string& url, const std::string& destination) {
    if (url.empty() || destination.empty()) return 0;
    auto job = std::make_unique<Job>();
    job->target = host_->newFileTarget();
    std::string error;
    if (!job->target->begin(destination, error)) return 0;
    Job* j = job.get();
    long id;
    {
        std::lock_guard lock(mutex_);
        id = next_++;
        jobs_.emplace(id, std::move(job));
    }
    j->thread = std::thread([this, j, url] {
        auto transport = host_->newTransport();
        std::string writeError;
        TransferResult r = transport->get(
            url,
            [&](const char* data, size_t size) {
                if (!j->target->write(data, size, writeError)) return false;
                j->bytes += size;
                changed_.notify_all();
                return true;
            },
            &j->cancel);
        std::lock_guard lock(mutex_);
        j->done = true;
        j->ok = r.ok && writeError.empty();
        changed_.notify_all();
    });
    return id;
}

long AsyncDownloads::status(long job, long long& bytesReceived, unsigned waitMs) {
    std::unique_lock lock(mutex_);
    auto it = jobs_.find(job);
    if (it == jobs_.end()) return kUnknownJob;
    Job& j = *it->second;
    if (!j.done && waitMs > 0) changed_.wait_for(lock, std::chrono::milliseconds(waitMs), [&] { return j.done; });
    bytesReceived = static_cast<long long>(j.bytes.load());
    if (!j.done) return kRunning;
    if (!j.settled) {
        j.settled = true;
        lock.unlock();
        if (j.thread.joinable()) j.thread.join();
        std::string error;
        if (j.ok && !j.target->commit(error)) j.ok = false;
        if (!j.ok) j.target->abandon();
        lock.lock();
    }
    return j.ok ? kCompleted : kFailed;
}

}  // namespace standins

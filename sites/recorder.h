// What the sites saw: every request (in memory and, when asked, in the
// request log file) and every post (in memory and, when asked, one file each).
#pragma once

#include "sites/sites_server.h"

#include <atomic>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <vector>

namespace sites::detail {

class Recorder {
public:
    // Opens the request log for appending and numbers posts on after those
    // the folder already holds. Empty paths: kept in memory only.
    void open(const std::filesystem::path& logFile, const std::filesystem::path& postsFolder);

    // A request's record as it comes in, numbered in arrival order.
    RequestRecord arrive(std::string site, std::string method, std::string host, std::string path,
                         std::string query);
    void log(const RequestRecord& record);
    void keep(const PostRecord& post);

    std::vector<RequestRecord> requests() const;
    std::vector<PostRecord> posts() const;

private:
    mutable std::mutex mutex_;
    std::vector<RequestRecord> requests_;
    std::vector<PostRecord> posts_;
    std::ofstream logFile_;
    std::filesystem::path postsFolder_;
    unsigned postCount_ = 0;
    std::atomic<std::uint64_t> arrivals_{0};
};

}  // namespace sites::detail

#include "sites/recorder.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <stdexcept>

namespace sites {

namespace fs = std::filesystem;

std::string rootElementOf(std::string_view xml) {
    size_t at = 0;
    while (true) {
        at = xml.find('<', at);
        if (at == std::string_view::npos || at + 1 >= xml.size()) return {};
        const char next = xml[at + 1];
        if (next == '?' || next == '!') {
            // A declaration, comment or doctype: skip to its end.
            const std::string_view end = xml.compare(at, 4, "<!--") == 0 ? "-->" : ">";
            at = xml.find(end, at + 2);
            if (at == std::string_view::npos) return {};
            continue;
        }
        const size_t stop = xml.find_first_of(" \t\r\n/>", at + 1);
        return std::string(xml.substr(at + 1, stop == std::string_view::npos ? std::string_view::npos : stop - at - 1));
    }
}

std::string RequestRecord::line() const {
    return site + '\t' + method + '\t' + host + '\t' + path + '\t' + query + '\t' + std::to_string(status) + '\t' +
           std::to_string(bytes);
}

namespace detail {

namespace {

// A posted body's file name: sequence, site, path flattened to safe characters.
std::string postFileName(unsigned n, const std::string& site, const std::string& path) {
    std::string flat;
    auto start = path.find_first_not_of('/');
    for (char c : path.substr(start == std::string::npos ? path.size() : start))
        flat.push_back(std::isalnum(static_cast<unsigned char>(c)) || c == '.' || c == '-' ? c : '_');
    char seq[16];
    std::snprintf(seq, sizeof seq, "%04u", n);
    return std::string(seq) + "-" + site + (flat.empty() ? "" : "-" + flat);
}

}  // namespace

void Recorder::open(const fs::path& logFile, const fs::path& postsFolder) {
    postsFolder_ = postsFolder;
    if (!logFile.empty()) {
        logFile_.open(logFile, std::ios::app);
        if (!logFile_) throw std::runtime_error("cannot open the request log " + logFile.string());
    }
    if (!postsFolder.empty()) {
        fs::create_directories(postsFolder);
        // A folder that already holds posts goes on numbering after them:
        // what was recorded is never written over.
        for (const auto& e : fs::directory_iterator(postsFolder)) {
            const std::string name = e.path().filename().string();
            if (name.size() > 4 && std::all_of(name.begin(), name.begin() + 4, [](char c) { return c >= '0' && c <= '9'; }))
                postCount_ = std::max(postCount_, static_cast<unsigned>(std::stoul(name.substr(0, 4))));
        }
    }
}

RequestRecord Recorder::arrive(std::string site, std::string method, std::string host, std::string path,
                               std::string query) {
    RequestRecord record{std::move(site), std::move(method), std::move(host), std::move(path), std::move(query), 0, 0};
    record.arrival = ++arrivals_;
    return record;
}

void Recorder::log(const RequestRecord& record) {
    std::lock_guard lock(mutex_);
    requests_.push_back(record);
    if (logFile_.is_open()) logFile_ << record.line() << '\n' << std::flush;
}

void Recorder::keep(const PostRecord& post) {
    std::lock_guard lock(mutex_);
    posts_.push_back(post);
    if (!postsFolder_.empty()) {
        std::ofstream out(postsFolder_ / postFileName(++postCount_, post.site, post.path), std::ios::binary);
        out << post.body;
    }
}

std::vector<RequestRecord> Recorder::requests() const {
    std::lock_guard lock(mutex_);
    return requests_;
}

std::vector<PostRecord> Recorder::posts() const {
    std::lock_guard lock(mutex_);
    return posts_;
}

}  // namespace detail

}  // namespace sites

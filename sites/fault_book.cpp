#include "sites/fault_book.h"

#include <algorithm>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <system_error>

namespace sites::detail {

namespace fs = std::filesystem;

bool FaultBook::reload() {
    if (file_.empty()) return false;
    std::error_code ec;
    auto time = fs::last_write_time(file_, ec);
    std::string text;
    if (ec) {
        time = {};
    } else {
        std::ifstream in(file_, std::ios::binary);
        text.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }
    std::lock_guard lock(mutex_);
    if (fileText_ && *fileText_ == text && fileTime_ == time) return false;
    fileText_ = text;
    fileTime_ = time;
    fromFile_.clear();
    std::istringstream lines(text);
    std::string line;
    for (int number = 1; std::getline(lines, line); ++number) {
        try {
            if (auto rule = parseFaultLine(line)) fromFile_.push_back({*rule, 0});
        } catch (const std::invalid_argument& e) {
            std::cerr << "kpm-sites: " << file_.string() << ":" << number << ": " << e.what() << "\n";
        }
    }
    return true;
}

std::optional<Fault> FaultBook::take(const std::string& site, const std::string& decoded, const std::string& raw) {
    std::lock_guard lock(mutex_);
    for (bool exact : {true, false}) {
        for (auto* faults : {&api_, &fromFile_}) {
            for (auto& f : *faults) {
                const auto& r = f.rule;
                if (r.site != site || r.fault.kind == Fault::Kind::Refuse) continue;
                if (exact ? (r.path != decoded && r.path != raw) : r.path != "*") continue;
                if (r.fault.times > 0 && f.used >= r.fault.times) continue;
                ++f.used;
                return r.fault;
            }
        }
    }
    return std::nullopt;
}

bool FaultBook::refused(const std::string& site) const {
    std::lock_guard lock(mutex_);
    auto refuses = [&](const std::vector<Active>& faults) {
        return std::any_of(faults.begin(), faults.end(), [&](const Active& f) {
            return f.rule.site == site && f.rule.fault.kind == Fault::Kind::Refuse;
        });
    };
    return refuses(api_) || refuses(fromFile_);
}

void FaultBook::set(const std::string& site, const std::string& path, const Fault& fault) {
    std::lock_guard lock(mutex_);
    std::erase_if(api_, [&](const Active& f) { return f.rule.site == site && f.rule.path == path; });
    api_.push_back({FaultRule{site, path, fault}, 0});
}

void FaultBook::clearApi() {
    std::lock_guard lock(mutex_);
    api_.clear();
}

}  // namespace sites::detail

// The faults in force: those set through the API and those of the faults
// file, which is read again whenever it changes. Safe to use from every
// listener's thread.
#pragma once

#include "sites/sites_server.h"

#include <filesystem>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace sites::detail {

class FaultBook {
public:
    explicit FaultBook(std::filesystem::path file) : file_(std::move(file)) {}

    // Reads the faults file again when it changed (rewriting it re-arms its
    // times= counts). True when it was read.
    bool reload();

    // The fault this request meets, counted against its times=. An exact path
    // beats "*"; faults set through the API beat those of the file.
    std::optional<Fault> take(const std::string& site, const std::string& decoded, const std::string& raw);

    // Whether a refuse fault closes the site.
    bool refused(const std::string& site) const;

    void set(const std::string& site, const std::string& path, const Fault& fault);
    void clearApi();

private:
    struct Active {
        FaultRule rule;
        int used = 0;
    };

    std::filesystem::path file_;
    mutable std::mutex mutex_;
    std::vector<Active> api_;
    std::vector<Active> fromFile_;
    std::optional<std::string> fileText_;
    std::filesystem::file_time_type fileTime_{};
};

}  // namespace sites::detail

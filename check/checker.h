// kpmdwld-check: what the next pass would do on this computer, and why,
// read with the pass's own readers and changing nothing (docs/checker.md).
#pragma once

#include <string>
#include <vector>

#include "platform/datetime.h"

namespace kpm::check {

class CheckHost;

struct Item {
    std::string key, value;
};

struct Section {
    std::string name;
    std::vector<Item> items;
    void add(const std::string& key, const std::string& value) { items.push_back({key, value}); }
};

struct Report {
    std::vector<std::string> summary;  // one line a pipeline: "Microsoft window: inside (...)"
    std::vector<Section> sections;
    std::vector<std::string> warnings;
    // Why the configuration could not be read (no agent key, no install
    // folder): nothing after it means anything.
    std::string unreadable;

    Section& section(const std::string& name);
    // 0 all clear, 1 warnings, 2 could not read.
    int exitCode() const;
};

// The whole check at the host's clock. The host must be installed
// (platform::setHost) and is the one the readers use.
Report RunChecks(CheckHost& host);

std::string RenderText(const Report& report);
std::string RenderJson(const Report& report);

}  // namespace kpm::check

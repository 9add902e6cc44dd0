// The faults a site can be told to play, and how a faults file line reads.
#include "sites/sites_server.h"
#include "sites/url_text.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <sstream>
#include <stdexcept>

namespace sites {

using detail::number;

Fault Fault::withStatus(int status, int times) {
    Fault f;
    f.kind = Kind::Status;
    f.status = status;
    f.times = times;
    return f;
}

Fault Fault::refuse() {
    Fault f;
    f.kind = Kind::Refuse;
    return f;
}

Fault Fault::reset(std::uint64_t bytes, int times) {
    Fault f;
    f.kind = Kind::Reset;
    f.amount = bytes;
    f.times = times;
    return f;
}

Fault Fault::stall(double seconds, int times) {
    Fault f;
    f.kind = Kind::Stall;
    f.seconds = seconds;
    f.times = times;
    return f;
}

Fault Fault::slow(std::uint64_t bytesPerSecond, int times) {
    Fault f;
    f.kind = Kind::Slow;
    f.amount = bytesPerSecond;
    f.times = times;
    return f;
}

Fault Fault::redirect(std::string location, int times) {
    Fault f;
    f.kind = Kind::Redirect;
    f.status = 302;
    f.location = std::move(location);
    f.times = times;
    return f;
}

Fault Fault::empty(int times) {
    Fault f;
    f.kind = Kind::Empty;
    f.times = times;
    return f;
}

std::optional<FaultRule> parseFaultLine(std::string_view line) {
    if (auto hash = line.find('#'); hash != std::string_view::npos) line = line.substr(0, hash);
    std::istringstream in{std::string(line)};
    std::vector<std::string> words{std::istream_iterator<std::string>(in), std::istream_iterator<std::string>()};
    if (words.empty()) return std::nullopt;
    auto bad = [&](const std::string& why) {
        return std::invalid_argument(why + " in fault line '" + std::string(line) + "'");
    };
    if (words.size() < 3) throw bad("expected <site> <path> <fault>");
    FaultRule rule{words[0], words[1], {}};
    if (rule.path != "*" && rule.path.front() != '/') throw bad("the path must start with '/' or be '*'");

    int times = 0;
    if (words.size() > 3 && words.back().rfind("times=", 0) == 0) {
        auto k = number<int>(std::string_view(words.back()).substr(6));
        if (!k || *k < 1) throw bad("times= takes a count of at least 1");
        times = *k;
        words.pop_back();
    }
    const std::string kind = words[2];
    auto argument = [&]() -> std::string_view {
        if (words.size() != 4) throw bad("'" + kind + "' takes one argument");
        return words[3];
    };
    auto count = [&](std::string_view text) {
        auto n = number<std::uint64_t>(text);
        if (!n) throw bad("'" + std::string(text) + "' is not a byte count");
        return *n;
    };

    if (kind == "refuse") {
        if (words.size() != 3) throw bad("'refuse' takes no argument");
        rule.fault = Fault::refuse();
    } else if (kind == "empty") {
        if (words.size() != 3) throw bad("'empty' takes no argument");
        rule.fault = Fault::empty(times);
    } else if (kind == "reset") {
        rule.fault = Fault::reset(count(argument()), times);
    } else if (kind == "redirect") {
        rule.fault = Fault::redirect(std::string(argument()), times);
    } else if (kind == "stall") {
        auto text = argument();
        auto seconds = number<double>(text);
        if (!seconds || !std::isfinite(*seconds) || *seconds < 0)
            throw bad("'" + std::string(text) + "' is not a number of seconds");
        rule.fault = Fault::stall(*seconds, times);
    } else if (kind == "slow") {
        auto rate = count(argument());
        if (rate == 0) throw bad("'slow' needs a rate above 0");
        rule.fault = Fault::slow(rate, times);
    } else if (kind.size() == 3 && std::all_of(kind.begin(), kind.end(), [](char c) { return c >= '0' && c <= '9'; })) {
        if (words.size() != 3) throw bad("a status takes no argument");
        int status = *number<int>(kind);
        if (status < 100) throw bad("'" + kind + "' is not an HTTP status");
        rule.fault = Fault::withStatus(status, times);
    } else {
        throw bad("unknown fault '" + kind + "'");
    }
    return rule;
}

}  // namespace sites

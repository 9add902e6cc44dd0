// Small text helpers the sites server shares: case, request targets, URLs.
#pragma once

#include <charconv>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

namespace sites::detail {

std::string lower(std::string_view s);
bool startsWithNoCase(std::string_view s, std::string_view prefix);

// The request target split at the first '?': what was sent, undecoded.
std::pair<std::string, std::string> splitTarget(const std::string& target);

std::string contentTypeFor(const std::filesystem::path& file);

template <typename T>
std::optional<T> number(std::string_view text) {
    T value{};
    auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (ec != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return value;
}

bool isInside(const std::filesystem::path& root, const std::filesystem::path& p);

struct AbsoluteUrl {
    std::string host;
    int port = 80;
    std::string path;
};

// "http://host[:port]/path" (query already split off).
std::optional<AbsoluteUrl> parseAbsolute(const std::string& target);

// Headers a proxy never forwards.
bool hopByHop(const std::string& name);

}  // namespace sites::detail

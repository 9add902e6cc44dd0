// Versions of installed products and of their updates: read and compared in
// this one place (docs/third-party.md, "Versions").
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kpm {

struct ProductVersion {
    // The dotted numbers, without trailing zero parts (1.0.0 is 1).
    std::vector<uint64_t> core;
    // What follows the core, as runs of digits (leading zeros dropped) and of
    // lower-cased letters; other characters only separate runs.
    struct Run {
        bool digits = false;
        std::string text;
    };
    std::vector<Run> suffix;
};

// An optional "v", numbers separated by dots, then anything. Not a version:
// empty, no digit first, a number beyond 64 bits.
std::optional<ProductVersion> ParseVersion(std::string_view text);

// Below 0 when a is older than b, 0 when they are the same version, above 0
// when a is newer.
int CompareVersions(const ProductVersion& a, const ProductVersion& b);

}  // namespace kpm

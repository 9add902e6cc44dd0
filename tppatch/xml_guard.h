// What the product list's text must not hold before any XML parser sees it:
// a document type declaration (entities that expand to gigabytes, external
// entities that reach the network or the disk), more than a bounded size, or
// nesting deeper than the list's own shape needs. MSXML 3.0 allows all three
// by default and Wine's MSXML ignores the properties that forbid them, so the
// pass checks the bytes itself: every binding refuses the same documents.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace kpm {

constexpr uint64_t kMostProductListBytes = 32ull << 20;  // 32 MiB: ten times a list of 10,000 products
constexpr int kMostProductListDepth = 16;                 // the list itself needs 6

// Why `xml` is refused, or empty when it may be parsed.
std::string HostileXmlReason(std::string_view xml, int mostDepth = kMostProductListDepth);

}  // namespace kpm

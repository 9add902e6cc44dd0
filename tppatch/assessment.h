// The assessment of installed products: for each product of the selected
// vendors, where it shows in the registry and whether its update is needed
// (docs/third-party.md, "The assessment").
#pragma once

#include <string>
#include <vector>

#include "tppatch/catalogue.h"

namespace kpm {

// Conflicting: one install older than the update, another at or above it.
// HiveUnreadable: no install older, and a user's hive could not be loaded.
enum class ProductState { NotInstalled, UpToDate, UpdateNeeded, Unknown, Failed, Conflicting, HiveUnreadable };

struct ProductFinding {
    size_t product = 0;  // index in Catalogue::products
    ProductState state = ProductState::NotInstalled;
    std::string where;     // the key that decided, with its view or user hive; or where the search looked
    std::string evidence;  // the value read and what it was held to, or why it could not be
    std::string other;     // Conflicting: the install at or above the update
};

// The vendors that `selected` (a comma-separated list of ids or names, any
// case) names, by index; each name that no vendor has is logged once.
std::vector<bool> SelectVendors(const Catalogue& catalogue, const std::string& selected);

// Assesses the products of the selected vendors, logging one entry for each.
std::vector<ProductFinding> AssessProducts(const Catalogue& catalogue, const std::vector<bool>& selected);

const char* StateText(ProductState state);

}  // namespace kpm

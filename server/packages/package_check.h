// Looks at everything that a backup refers to, without reading the packages.
//
// Long lists are gone through in pieces, so that others get their turn at the catalog between them.
// The caller holds the instance's lock, or the instance is completed. Throws std::exception when
// the storage is down.
#pragma once

#include <cstdint>
#include <optional>

#include "catalog/catalog.h"
#include "packages/block_store.h"

namespace dorvo {

// Before a backup is completed: each item whose package is gone, cut short or known as damaged, or
// whose row is unsound, is awaited again, and such packages are carried over no more. How many
// items are complete after that; nothing when the order of its rows is broken, so that not all of
// them could be looked at.
std::optional<int64_t> checkPackages(Catalog& catalog, BlockStore& blocks, int64_t instance);

// How many of the completed instance's items its list has lost; at least so many where the order of
// the list is broken as well.
int64_t countLost(Catalog& catalog, const Instance& instance);

}  // namespace dorvo

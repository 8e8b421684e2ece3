// Goes through all items of a backup in pieces, so that others get their turn at the catalog
// between them.
#pragma once

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "catalog.h"

namespace dorvo {

// Gives `look` the items piece by piece, in the order of their paths. Ends early where that order
// is broken: the rest could be gone through for ever. Whether it has not been. The caller sees to
// it that nobody adds items meanwhile.
template <class Look>
bool forEachPiece(Catalog& catalog, int64_t instance, const Look& look) {
    constexpr size_t piece = 1000;
    std::string after;
    while (true) {
        const auto begin = std::chrono::steady_clock::now();
        std::vector<CatalogItem> items = catalog.listItems(instance, after, piece);
        const auto took = std::chrono::steady_clock::now() - begin;
        bool last = items.size() < piece;
        bool sound = true;
        for (size_t i = 0; i < items.size(); ++i) {
            if (items[i].path <= after) {
                items.resize(i);
                last = true;
                sound = false;
                break;
            }
            after = items[i].path;
        }
        look(items);
        if (last) {
            return sound;
        }
        // Who lets the catalog go and comes again at once has it before those who wait for it.
        std::this_thread::sleep_for(took);
    }
}

}  // namespace dorvo

// Goes through all items of a backup in pieces: others get their turn at the catalog after each.
#pragma once

#include <string>
#include <vector>

#include "catalog/catalog.h"

namespace dorvo {

// Gives `look` the items piece by piece, in the order of their paths. Ends early where that order
// is broken: the rest could be gone through for ever. Whether it has not been. The caller sees to
// it that nobody adds items meanwhile.
template <class Look>
bool forEachPiece(Catalog& catalog, int64_t instance, const Look& look) {
    constexpr size_t piece = 1000;
    std::string after;
    while (true) {
        std::vector<CatalogItem> items = catalog.listItems(instance, after, piece);
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
    }
}

}  // namespace dorvo

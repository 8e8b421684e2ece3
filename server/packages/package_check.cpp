#include "packages/package_check.h"

#include <map>
#include <optional>
#include <vector>

#include "packages/item_pieces.h"

namespace dorvo {

namespace {

bool isComplete(const StoredFile& file) {
    return file.kind == FileKind::folder ||
           (file.kind == FileKind::file && file.blocks * blockBytes >= file.size);
}

// The lengths of containers, each asked for once.
class Lengths {
public:
    explicit Lengths(BlockStore& blocks) : blocks_(blocks) {}

    bool hold(const StoredFile& file) {
        const auto [found, asked] = known_.try_emplace(file.container);
        if (asked) {
            found->second = blocks_.length(file.container).value_or(0);
        }
        return file.size <= found->second - file.offset;
    }

private:
    BlockStore& blocks_;
    std::map<int64_t, int64_t> known_;
};

}  // namespace

std::optional<int64_t> checkPackages(Catalog& catalog, BlockStore& blocks, int64_t instance) {
    Lengths lengths(blocks);
    int64_t complete = 0;
    const bool all = forEachPiece(catalog, instance, [&](const std::vector<CatalogItem>& items) {
        std::vector<CatalogItem> lost;
        for (const CatalogItem& item : items) {
            if (!isComplete(item.file)) {
                continue;
            }
            if (item.damaged || !item.file.sound ||
                (item.file.size > 0 && !lengths.hold(item.file))) {
                lost.push_back(item);
            } else {
                ++complete;
            }
        }
        if (!lost.empty()) {
            catalog.awaitAgain(instance, lost);
        }
    });
    return all ? std::optional(complete) : std::nullopt;
}

int64_t countLost(Catalog& catalog, const Instance& instance) {
    if (instance.items < 0) {
        return 0;
    }
    int64_t there = 0;
    forEachPiece(catalog, instance.id, [&](const std::vector<CatalogItem>& items) {
        for (const CatalogItem& item : items) {
            there += item.file.sound ? 1 : 0;
        }
    });
    return instance.items > there ? instance.items - there : 0;
}

}  // namespace dorvo

#include "packages/after_crash.h"

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "packages/item_pieces.h"
#include "support/digest.h"
#include "support/event_log.h"

namespace dorvo {

namespace {

// How many of the package's blocks are there, without gaps. Those before block `first` are.
int64_t countWhole(Catalog& catalog, BlockStore& blocks, const StoredFile& file, int64_t first) {
    std::string bytes;
    for (int64_t k = first; k <= file.blocks; ++k) {
        const int64_t begin = (k - 1) * blockBytes;
        bytes.resize(static_cast<size_t>(std::min(blockBytes, file.size - begin)));
        try {
            blocks.read(file.container, file.offset + begin, bytes);
        } catch (const LostBytes&) {
            return k - 1;
        }
        if (catalog.findDigest(file, k) != md5(bytes)) {
            return k - 1;
        }
    }
    return file.blocks;
}

}  // namespace

KeptAfterCrash keepWhatIsWhole(Catalog& catalog, BlockStore& blocks) {
    KeptAfterCrash kept;
    std::set<int64_t> refreshed;
    for (const int64_t instance : catalog.listRunning()) {
        const auto keepPiece = [&](const std::vector<CatalogItem>& items) {
            std::vector<KeptBlocks> shortened;
            for (const CatalogItem& item : items) {
                const StoredFile& file = item.file;
                if (!file.sound || file.owner != instance || file.blocks == 0) {
                    continue;
                }
                if (const auto first = catalog.findUnsynced(file)) {
                    ++kept.packages;
                    if (refreshed.insert(file.container).second &&
                        !blocks.syncToReadAgain(file.container)) {
                        logEvent("damaged: the disk has refused bytes of container " +
                                 std::to_string(file.container));
                        catalog.damageContainer(file.container);
                    }
                    const int64_t whole = countWhole(catalog, blocks, file, *first);
                    if (whole < file.blocks) {
                        shortened.push_back({item.path, whole});
                    }
                }
            }
            if (!shortened.empty()) {
                catalog.dropBlocks(instance, shortened);
                kept.shortened += static_cast<int64_t>(shortened.size());
            }
        };
        if (!forEachPiece(catalog, instance, keepPiece)) {
            // Blocks that are not on the disk may be among those that could not be looked at.
            catalog.damageInstance(instance);
        }
    }
    return kept;
}

}  // namespace dorvo

#include "packages/backup_packages.h"

#include <algorithm>
#include <exception>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "common/digest.h"
#include "common/service_log.h"

namespace dorvo {

namespace {

// Gives `look` the items piece by piece, in the order of their paths. Ends early where that order
// is broken: the rest could be gone through for ever. Whether it has not been. The caller sees to
// it that nobody adds items meanwhile.
template <class Look>
bool forEachPiece(Instances& instances, int64_t instance, const Look& look) {
    constexpr size_t piece = 1000;
    std::string after;
    while (true) {
        std::vector<CatalogItem> items = instances.listItems(instance, after, piece);
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

// How many of the package's blocks are there, without gaps. Those before block `first` are.
int64_t countWhole(Instances& instances, BlockStore& blocks, const StoredFile& file,
                   int64_t first) {
    std::string bytes;
    for (int64_t k = first; k <= file.blocks; ++k) {
        const int64_t begin = (k - 1) * blockBytes;
        bytes.resize(static_cast<size_t>(std::min(blockBytes, file.size - begin)));
        try {
            blocks.read(file.container, file.offset + begin, bytes);
        } catch (const LostBytes&) {
            return k - 1;
        }
        if (instances.findDigest(file, k) != md5(bytes)) {
            return k - 1;
        }
    }
    return file.blocks;
}

}  // namespace

std::optional<int64_t> checkPackages(Instances& instances, BlockStore& blocks, int64_t instance) {
    Lengths lengths(blocks);
    int64_t complete = 0;
    const bool all = forEachPiece(instances, instance, [&](const std::vector<CatalogItem>& items) {
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
            instances.awaitAgain(instance, lost);
        }
    });
    return all ? std::optional(complete) : std::nullopt;
}

int64_t countLost(Instances& instances, const Instance& instance) {
    if (instance.items < 0) {
        return 0;
    }
    int64_t there = 0;
    forEachPiece(instances, instance.id, [&](const std::vector<CatalogItem>& items) {
        for (const CatalogItem& item : items) {
            there += item.file.sound ? 1 : 0;
        }
    });
    return instance.items > there ? instance.items - there : 0;
}

KeptAfterCrash keepWhatIsWhole(Instances& instances, BlockStore& blocks) {
    KeptAfterCrash kept;
    std::set<int64_t> refreshed;
    for (const int64_t instance : instances.listRunning()) {
        const auto keepPiece = [&](const std::vector<CatalogItem>& items) {
            std::vector<KeptBlocks> shortened;
            for (const CatalogItem& item : items) {
                const StoredFile& file = item.file;
                if (!file.sound || file.owner != instance || file.blocks == 0) {
                    continue;
                }
                if (const auto first = instances.findUnsynced(file)) {
                    ++kept.packages;
                    if (refreshed.insert(file.container).second &&
                        !blocks.syncToReadAgain(file.container)) {
                        logEvent("damaged: the disk has refused bytes of container " +
                                 std::to_string(file.container) + ", or cannot prove them");
                        instances.damageContainer(file.container);
                    }
                    const int64_t whole = countWhole(instances, blocks, file, *first);
                    if (whole < file.blocks) {
                        shortened.push_back({item.path, whole});
                    }
                }
            }
            if (!shortened.empty()) {
                instances.dropBlocks(instance, shortened);
                kept.shortened += static_cast<int64_t>(shortened.size());
            }
        };
        if (!forEachPiece(instances, instance, keepPiece)) {
            // Blocks that are not on the disk may be among those that could not be looked at.
            instances.damageInstance(instance);
        }
    }
    return kept;
}

void freeGivenUp(Instances& instances, BlockStore& blocks) {
    const auto complain = [](const std::exception& error) {
        logEvent(std::string("cannot free what a backup gave up: ") + error.what());
    };
    try {
        for (const int64_t container : instances.listGivenUp()) {
            try {
                blocks.remove(container);
                instances.forgetGivenUp(container);
            } catch (const std::exception& error) {
                complain(error);
            }
        }
    } catch (const std::exception& error) {
        complain(error);
    }
}

}  // namespace dorvo

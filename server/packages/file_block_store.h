// Containers as plain files: <folder>/<two hexadecimal digits>/<number>.pkg
//
// A few files a backup, not one a package: the end of a backup waits for the disk once or a few
// times, however many small files it has, and a cancelled backup is freed with as many calls. The
// digits are the low byte of the number. A file "marker" stands in the folder: while it does not,
// the packages are away.
#pragma once

#include <array>
#include <filesystem>
#include <functional>
#include <mutex>
#include <set>
#include <vector>

#include "packages/block_store.h"

namespace dorvo {

class FileBlockStore : public BlockStore {
public:
    // Hears of each write to a container once it is done, on the writer's thread.
    using Written = std::function<void(int64_t container, size_t bytes)>;

    // Well below what any file system takes in one file, and few files for even a large backup.
    static constexpr int64_t usualLimit = int64_t{64} << 30U;

    // Touches nothing; reconcile() has seen to the folder.
    explicit FileBlockStore(std::filesystem::path folder, int64_t limit = usualLimit,
                            Written written = {});

    [[nodiscard]] const std::filesystem::path& folder() const { return folder_; }
    [[nodiscard]] int64_t limit() const override { return limit_; }
    void write(int64_t container, int64_t offset, std::string_view bytes) override;
    void read(int64_t container, int64_t offset, std::span<char> bytes) override;
    [[nodiscard]] std::optional<int64_t> length(int64_t container) override;
    void discard(int64_t container, int64_t offset, int64_t length) override;
    bool sync(int64_t container, int64_t length) override;
    bool syncToReadAgain(int64_t container) override;
    void remove(int64_t container) override;

    // The containers of which the disk has refused bytes.
    [[nodiscard]] std::vector<int64_t> refused();

    struct Found {
        int64_t container = 0;
        int64_t length = 0;
    };
    // What is in the folder, whoever it belongs to; nothing when there is no folder.
    [[nodiscard]] std::vector<Found> list() const;
    // Takes a container that nobody knows out of the folder, with all its bytes, and gives the path
    // where it is now: a folder "orphans" beside this one, or in it where that would be another
    // file system. Survives a power cut.
    std::filesystem::path setAside(int64_t container);

private:
    // The kernel tells one of those who sync a file that it could not be written, and the others,
    // who come later, that all is well. So containers of one group are synced one at a time, and
    // what was refused stays so until the process ends.
    struct SyncGroup {
        std::mutex mutex;  // held over a sync; guards the set
        std::set<int64_t> refused;
    };

    [[nodiscard]] std::filesystem::path path(int64_t container) const;
    SyncGroup& groupOf(int64_t container);

    std::filesystem::path folder_;
    int64_t limit_;
    Written written_;
    std::array<SyncGroup, 64> groups_;
};

}  // namespace dorvo

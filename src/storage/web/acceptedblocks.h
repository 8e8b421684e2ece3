// What the service has accepted of the package that is being sent: how many blocks, and a digest of
// them, kept in the job's folder, because the activity record has no room for it.
//
// A run that goes on makes the package of its item anew. Size and last write of a file say nothing
// about its content: databases, containers and disk images change and keep both. So the run goes on
// behind the accepted blocks only of a package that begins with them.
//
// The digest is one of the blocks' own digests, those that the service has compared, so that
// counting a block costs next to nothing. docs/formats/accepted-blocks.md has the file and what
// damage does to it.
#pragma once

#include <cstdint>
#include <string>

#include "base/handle.h"

namespace dorvo {

// The first blocks of a package. A value.
class AcceptedBlocks {
public:
    // None, of no package.
    AcceptedBlocks() = default;
    // None yet. `package` tells it from every other one.
    explicit AcceptedBlocks(const std::string& package);
    // As on record.
    AcceptedBlocks(uint32_t count, std::string digest)
        : count_(count), digest_(std::move(digest)) {}

    // The next block, by the MD5 with which it travels.
    void add(const std::string& md5);

    uint32_t count() const { return count_; }
    const std::string& digest() const { return digest_; }
    bool operator==(const AcceptedBlocks&) const = default;

private:
    uint32_t count_ = 0;
    std::string digest_;
};

// The file. One thread, the job's worker.
class AcceptedBlocksFile {
public:
    // Nothing is made on the disk yet, and never where there is no directory.
    explicit AcceptedBlocksFile(const std::wstring& jobDirectory);

    // None when the file is none.
    AcceptedBlocks load();
    // In one write. False is logged, the first time.
    bool save(const AcceptedBlocks& blocks);
    // None are accepted, and the disk has that when this returns: after a power cut the blocks of a
    // content that was given up must not be taken for accepted again. False as for save().
    bool forget();

private:
    bool open();
    bool write(const AcceptedBlocks& blocks);

    std::wstring folder_;
    FileHandle file_;
    bool complained_ = false;
};

}  // namespace dorvo

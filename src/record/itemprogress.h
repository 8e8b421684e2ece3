// How far a run has come with the item it works on: the verbs by which the item loop and the
// storages write that into the job's activity record, and the one place that knows their order.
//
// A process may be killed between any two stores. So what is on record of blocks, offset and
// package is always that of the item whose number is on record, and of a package of the size on
// record: what belongs to another is forgotten before either changes. Who stores a block does so
// before accepted() says it; who finishes an item has it on disk before through(). Nothing is
// flushed: what the mapped record holds outlives the process, and after a power cut the storage is
// asked, or the check sums tell.
//
// Used by the run's work thread alone; others read the record at any time. The record is borrowed;
// null does for an object of which no verb is called.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <string_view>

#include "record/jobactivity.h"

namespace dorvo {

// What is stored before it stands before what is stored after it, also for who finds the record
// of a process that was killed in between.
inline void recordOrder() {
    std::atomic_signal_fence(std::memory_order_seq_cst);
}

class ItemProgress {
public:
    explicit ItemProgress(JobActivity* record) : record_(record) {}

    // A new list is made: nothing of it is done.
    void restart() {
        record_->sourcePosition = 0;
        forgetPackage();
        recordOrder();
        record_->itemNumber = 0;
        record_->volumeIndex = 0;
        record_->fileIndex = 0;
        record_->doneSize = 0;
        record_->unchangedSize = 0;
    }
    // The list's next item begins at the position.
    void at(uint64_t position) { record_->sourcePosition = position; }
    // The same, and the file before it is done with; `kept`: it was left as it is.
    void through(uint64_t position, uint64_t size, bool kept) {
        record_->sourcePosition = position;
        recordOrder();  // killed here, the run counts a file too few, and none twice
        record_->fileOffset = 0;
        record_->fileSize = 0;
        record_->doneSize += size;
        record_->fileIndex += 1;
        if (kept) {
            record_->unchangedSize += size;
            record_->keptFiles(record_->keptFiles() + 1);
        }
    }

    // The item of that number is worked on: its path is shown, and what is on record of another
    // one's package is forgotten.
    void show(std::wstring_view path) { record_->currentFilePath(path); }
    void claim(uint32_t number) {
        if (record_->itemNumber == number) {
            return;
        }
        forgetPackage();
        recordOrder();
        record_->itemNumber = number;
    }

    // Its content of that many bytes is turned into its package, or comes out of it. encoded()
    // counts some more of it.
    void encoding(uint64_t size) {
        record_->fileOffset = 0;
        record_->fileSize = size;
        state(CurrentFileState::encoding);
    }
    void encoded(uint64_t bytes) {
        record_->fileOffset = std::min(record_->fileOffset + bytes, record_->fileSize);
    }

    // Its package travels: `offset` of `size` bytes are through. Blocks on record stay, if they
    // are of a package of that size.
    void transferring(uint64_t size, uint64_t offset) {
        if (record_->packageSize != size) {
            backTo(0, 0);
            record_->packageSize = size;
        }
        record_->fileSize = size;
        record_->fileOffset = offset;
        state(CurrentFileState::transfer);
    }
    // No more than so many of the blocks on record are there, and the package goes on at the
    // offset. What is stored afterwards comes after it.
    void backTo(uint32_t blocks, uint64_t offset) {
        record_->acceptedBlocks = blocks;
        record_->fileOffset = offset;
        recordOrder();
    }
    // One more block is through, with which `blocks` of the package are where they belong.
    void accepted(uint32_t blocks, uint64_t bytes) {
        recordOrder();
        record_->acceptedBlocks = blocks;
        recordOrder();
        moved(bytes);
    }
    // Bytes that were sent or received; that were found there already.
    void moved(uint64_t bytes) {
        record_->fileOffset += bytes;
        record_->transferred += bytes;
    }
    void found(uint64_t bytes) { record_->fileOffset += bytes; }

    // What the job is shown to do with the item. Gives what it was.
    CurrentFileState state(CurrentFileState now) {
        const auto before = static_cast<CurrentFileState>(record_->currentFileState);
        record_->currentFileState = static_cast<uint32_t>(now);
        return before;
    }
    // The count of what requests and answers have had in bodies; null without a record.
    uint64_t* wire() { return record_ == nullptr ? nullptr : &record_->wireSize; }

private:
    void forgetPackage() {
        record_->acceptedBlocks = 0;
        record_->fileOffset = 0;
        record_->packageSize = 0;
    }

    JobActivity* record_;  // borrowed
};

}  // namespace dorvo

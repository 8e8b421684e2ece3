// Brings what runs have stored onto the disk while they go on, so that a power cut costs them the
// last half minute and not all of it.
//
// A thread of its own syncs the containers that were written to, every so many bytes or seconds,
// and then tells the catalog: what was counted before needs no second look after a power cut. No
// request waits for it. What cannot be synced now is tried again; a container whose bytes the disk
// has refused spoils its run.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <set>
#include <stop_token>
#include <thread>

#include "catalog/instances.h"
#include "packages/block_store.h"

namespace dorvo {

class SyncPoints {
public:
    struct Pace {
        int64_t bytes = int64_t{256} << 20U;
        std::chrono::seconds time{30};
    };

    // Borrows both.
    SyncPoints(Instances& instances, BlockStore& blocks, Pace pace);
    // Stops and joins; a sync in progress is finished.
    ~SyncPoints() = default;
    SyncPoints(const SyncPoints&) = delete;
    SyncPoints& operator=(const SyncPoints&) = delete;

    // The container has been written to; the catalog does not count it yet. Does not wait. Any
    // thread.
    void wrote(int64_t container, size_t bytes);

private:
    void work(const std::stop_token& stop);
    // Whether all of it has been done; what has not is to be synced the next time.
    bool sync();

    Instances& instances_;
    BlockStore& blocks_;
    const Pace pace_;
    std::mutex mutex_;  // guards what follows up to the thread
    std::condition_variable_any changed_;
    std::set<int64_t> written_;  // since the last sync point began
    int64_t bytes_ = 0;          // how many
    uint64_t writes_ = 0;        // ever
    bool behind_ = false;        // a sync point has failed since the last one that did not
    std::jthread thread_;        // the last: it uses all of the others
};

}  // namespace dorvo

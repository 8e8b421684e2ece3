#include "packages/sync_points.h"

#include <exception>
#include <string>

#include "common/service_log.h"

namespace dorvo {

SyncPoints::SyncPoints(Instances& instances, BlockStore& blocks, Pace pace)
    : instances_(instances),
      blocks_(blocks),
      pace_(pace),
      thread_([this](const std::stop_token& stop) { work(stop); }) {}

void SyncPoints::wrote(int64_t container, size_t bytes) {
    bool wake = false;
    {
        const std::lock_guard lock(mutex_);
        wake = written_.empty();
        written_.insert(container);
        ++writes_;
        const bool below = bytes_ < pace_.bytes;
        bytes_ += static_cast<int64_t>(bytes);
        wake = wake || (below && bytes_ >= pace_.bytes);
    }
    if (wake) {
        changed_.notify_one();
    }
}

void SyncPoints::work(const std::stop_token& stop) {
    std::unique_lock lock(mutex_);
    while (true) {
        changed_.wait(lock, stop, [this] { return !written_.empty(); });
        changed_.wait_for(lock, stop, pace_.time, [this] { return bytes_ >= pace_.bytes; });
        if (stop.stop_requested()) {
            return;
        }
        lock.unlock();
        const bool done = sync();
        lock.lock();
        if (!done) {
            changed_.wait_for(lock, stop, pace_.time, [] { return false; });
        }
    }
}

bool SyncPoints::sync() {
    std::set<int64_t> containers;
    std::set<int64_t> again;
    try {
        uint64_t before = 0;
        {
            const std::lock_guard lock(mutex_);
            before = writes_;
        }
        // Everything that the catalog counts up to here was written before, and is in the set.
        const int64_t stamp = instances_.beginSyncPoint();
        {
            const std::lock_guard lock(mutex_);
            containers.swap(written_);
            bytes_ = 0;
            // Blocks that came after the beginning, of this one or of one that failed, are for the
            // next one to cover.
            if (behind_ || writes_ != before) {
                again = containers;
            }
        }
        while (!containers.empty()) {
            const int64_t container = *containers.begin();
            if (!blocks_.sync(container, 0)) {
                logEvent("damaged: the disk has refused bytes of container " +
                         std::to_string(container));
                instances_.damageContainer(container);
            }
            containers.erase(container);
        }
        instances_.endSyncPoint(stamp);
        const std::lock_guard lock(mutex_);
        behind_ = false;
        written_.merge(again);
        return true;
    } catch (const std::exception& error) {
        logEvent(std::string("sync point: ") + error.what());
    }
    const std::lock_guard lock(mutex_);
    behind_ = true;
    written_.merge(containers);
    return false;
}

}  // namespace dorvo

#include "endpoints/instance_locks.h"

#include "common/service_error.h"

namespace dorvo {

// One of those that wait for a backup. Made and ended under the mutex.
class InstanceLocks::Waiting {
public:
    Waiting(InstanceLocks& locks, const Key& key)
        : locks_(locks), place_(locks.waiting_.try_emplace(key, 0).first) {
        if (place_->second == mostWaiting) {
            throw ServiceError(503, "too many requests of this backup are in progress");
        }
        ++place_->second;
    }
    ~Waiting() {
        if (--place_->second == 0) {
            locks_.waiting_.erase(place_);
        }
    }
    Waiting(const Waiting&) = delete;
    Waiting& operator=(const Waiting&) = delete;

private:
    InstanceLocks& locks_;
    std::map<Key, size_t>::iterator place_;
};

InstanceLocks::Guard::Guard(InstanceLocks& locks, int64_t user, std::string name, Hold hold)
    : locks_(locks), key_(user, std::move(name)) {
    std::unique_lock lock(locks_.mutex_);
    const auto taken = [&] {
        const auto [holder, mine] = locks_.held_.try_emplace(key_, hold);
        if (!mine && holder->second == Hold::ending) {
            throw ServiceError(503, "the backup is being ended");
        }
        return mine;
    };
    if (taken()) {
        return;
    }
    const Waiting waiting(locks_, key_);
    if (!locks_.released_.wait_for(lock, locks_.patience_, taken)) {
        throw ServiceError(503, "another request of this backup is in progress");
    }
}

InstanceLocks::Guard::~Guard() {
    {
        const std::lock_guard lock(locks_.mutex_);
        locks_.held_.erase(key_);
    }
    locks_.released_.notify_all();
}

}  // namespace dorvo

#include "login_limiter.h"

#include <algorithm>

namespace dorvo {

bool LoginLimiter::begin(const std::string& user, const std::string& address, int64_t now) {
    const std::lock_guard lock(mutex_);
    if (tries_.size() >= maxPairs && !tries_.contains({user, address})) {
        makeRoom(now);
    }
    Tries& tries = tries_[{user, address}];
    if (tries.since + windowSeconds <= now) {
        tries = {now, 0};
    }
    if (tries.count == maxTries) {
        return false;
    }
    ++tries.count;
    return true;
}

void LoginLimiter::succeeded(const std::string& user, const std::string& address) {
    const std::lock_guard lock(mutex_);
    tries_.erase({user, address});
}

void LoginLimiter::makeRoom(int64_t now) {
    std::erase_if(tries_,
                  [now](const auto& entry) { return entry.second.since + windowSeconds <= now; });
    if (tries_.size() >= maxPairs) {
        tries_.erase(std::min_element(
            tries_.begin(), tries_.end(),
            [](const auto& a, const auto& b) { return a.second.since < b.second.since; }));
    }
}

}  // namespace dorvo

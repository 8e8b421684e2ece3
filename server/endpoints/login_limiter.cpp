#include "endpoints/login_limiter.h"

#include <algorithm>

namespace dorvo {

bool LoginLimiter::closed(const std::string& user, const std::string& address, int64_t now) {
    const std::lock_guard lock(mutex_);
    const auto found = tries_.find({user, address});
    return found != tries_.end() && found->second.count == maxTries &&
           now < found->second.since + windowSeconds;
}

bool LoginLimiter::begin(const std::string& user, const std::string& address, int64_t now) {
    const std::lock_guard lock(mutex_);
    if (tries_.size() >= maxPairs && !tries_.contains({user, address})) {
        makeRoom(now);
    }
    // The clock may have begun less than a window ago.
    Tries& tries = tries_.try_emplace({user, address}, Tries{now, 0}).first->second;
    if (tries.since + windowSeconds <= now) {
        tries = {now, 0};
    }
    if (tries.count == maxTries) {
        return false;
    }
    ++tries.count;
    return true;
}

void LoginLimiter::takeBack(const std::string& user, const std::string& address) {
    const std::lock_guard lock(mutex_);
    const auto found = tries_.find({user, address});
    if (found != tries_.end() && --found->second.count == 0) {
        tries_.erase(found);
    }
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

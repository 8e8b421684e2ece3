#include "login_limiter.h"

#include <algorithm>

namespace dorvo {

bool LoginLimiter::allowed(const std::string& user, const std::string& address, int64_t now) {
    const std::lock_guard lock(mutex_);
    const auto found = failures_.find({user, address});
    return found == failures_.end() || found->second.count < maxFailures ||
           found->second.since + windowSeconds <= now;
}

void LoginLimiter::failed(const std::string& user, const std::string& address, int64_t now) {
    const std::lock_guard lock(mutex_);
    if (failures_.size() >= maxPairs) {
        makeRoom(now);
    }
    Failures& failures = failures_[{user, address}];
    if (failures.since + windowSeconds <= now) {
        failures = {now, 0};
    }
    ++failures.count;
}

void LoginLimiter::succeeded(const std::string& user, const std::string& address) {
    const std::lock_guard lock(mutex_);
    failures_.erase({user, address});
}

void LoginLimiter::makeRoom(int64_t now) {
    std::erase_if(failures_,
                  [now](const auto& entry) { return entry.second.since + windowSeconds <= now; });
    if (failures_.size() >= maxPairs) {
        failures_.erase(std::min_element(
            failures_.begin(), failures_.end(),
            [](const auto& a, const auto& b) { return a.second.since < b.second.since; }));
    }
}

}  // namespace dorvo

#include "httpd/open_connections.h"

#include <algorithm>

#include "httpd/client_address.h"

namespace dorvo {

OpenConnections::OpenConnections(const HttpLimits& limits)
    : most_(limits.connections),
      mostOfNetwork_(limits.connectionsOfAddress),
      manyBehind_(limits.manyBehind) {}

bool OpenConnections::enter(uint64_t number, const std::string& address,
                            const std::shared_ptr<Connection>& connection) {
    const std::string network = clientNetwork(address);
    std::shared_ptr<Connection> ended;
    const std::lock_guard lock(mutex_);
    if (shut_) {
        return false;
    }
    const auto same = ofNetwork_.find(network);
    if (same != ofNetwork_.end() && same->second >= mostOfNetwork_ &&
        std::find(manyBehind_.begin(), manyBehind_.end(), address) == manyBehind_.end()) {
        if (!endOne(&network, ended)) {
            return false;
        }
    } else if (staying_ >= most_ && !endOne(nullptr, ended)) {
        return false;
    }
    size_t& count = ofNetwork_[network];
    entries_.emplace(number, Entry{connection, network});
    ++count;
    ++staying_;
    return true;
}

bool OpenConnections::endOne(const std::string* network, std::shared_ptr<Connection>& ended) {
    for (const Standing standing : {Standing::stranger, Standing::served}) {
        const auto oldest = std::find_if(entries_.begin(), entries_.end(), [&](const auto& item) {
            const Entry& entry = item.second;
            return entry.standing == standing && !entry.ending &&
                   (network == nullptr || entry.network == *network);
        });
        if (oldest != entries_.end()) {
            ended = oldest->second.connection.lock();
            if (ended) {
                ended->abort();
            }
            oldest->second.ending = true;
            forget(oldest->second);
            return true;
        }
    }
    return false;
}

void OpenConnections::giveWay() {
    std::shared_ptr<Connection> ended;
    const std::lock_guard lock(mutex_);
    endOne(nullptr, ended);
}

void OpenConnections::setStanding(uint64_t number, Standing standing) {
    const std::lock_guard lock(mutex_);
    if (const auto entry = entries_.find(number); entry != entries_.end()) {
        entry->second.standing = standing;
    }
}

void OpenConnections::leave(uint64_t number) {
    const std::lock_guard lock(mutex_);
    const auto entry = entries_.find(number);
    if (entry == entries_.end()) {
        return;
    }
    if (!entry->second.ending) {
        forget(entry->second);
    }
    entries_.erase(entry);
    // Under the lock: who waits for the last one may destroy this as soon as it is free.
    left_.notify_all();
}

void OpenConnections::forget(const Entry& entry) {
    --staying_;
    const auto same = ofNetwork_.find(entry.network);
    if (--same->second == 0) {
        ofNetwork_.erase(same);
    }
}

void OpenConnections::shut() {
    const std::lock_guard lock(mutex_);
    shut_ = true;
}

std::vector<std::shared_ptr<OpenConnections::Connection>> OpenConnections::all() const {
    std::vector<std::shared_ptr<Connection>> list;
    const std::lock_guard lock(mutex_);
    list.reserve(entries_.size());
    for (const auto& [number, entry] : entries_) {
        if (auto connection = entry.connection.lock()) {
            list.push_back(std::move(connection));
        }
    }
    return list;
}

bool OpenConnections::waitUntilEmpty(std::chrono::milliseconds patience) {
    std::unique_lock lock(mutex_);
    return left_.wait_for(lock, patience, [this] { return entries_.empty(); });
}

void OpenConnections::waitUntilEmpty() {
    std::unique_lock lock(mutex_);
    left_.wait(lock, [this] { return entries_.empty(); });
}

}  // namespace dorvo

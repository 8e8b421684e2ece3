#include "httpd/open_connections.h"

#include <algorithm>

#include "httpd/http_connection.h"

namespace dorvo {

bool OpenConnections::enter(uint64_t number, const std::shared_ptr<HttpConnection>& connection) {
    std::shared_ptr<HttpConnection> ending;  // let go of after the lock: it may be the last owner
    const std::unique_lock lock(mutex_);
    if (shut_) {
        return false;
    }
    if (entries_.size() - ending_ >= most_) {
        const auto stranger = std::find_if(entries_.begin(), entries_.end(), [](const auto& item) {
            return !item.second.known && !item.second.ending;
        });
        if (!makeRoom_ || stranger == entries_.end()) {
            return false;
        }
        ending = stranger->second.connection.lock();
        if (ending) {
            ending->abort();
        }
        stranger->second.ending = true;
        ++ending_;
    }
    entries_[number].connection = connection;
    return true;
}

void OpenConnections::setKnown(uint64_t number, bool known) {
    const std::lock_guard lock(mutex_);
    if (const auto entry = entries_.find(number); entry != entries_.end()) {
        entry->second.known = known;
    }
}

void OpenConnections::leave(uint64_t number) {
    const std::lock_guard lock(mutex_);
    const auto entry = entries_.find(number);
    if (entry == entries_.end()) {
        return;
    }
    ending_ -= entry->second.ending ? 1 : 0;
    entries_.erase(entry);
    // Under the lock: who waits for the last one may destroy this as soon as it is free.
    left_.notify_all();
}

void OpenConnections::shut() {
    const std::lock_guard lock(mutex_);
    shut_ = true;
}

std::vector<std::shared_ptr<HttpConnection>> OpenConnections::all() const {
    std::vector<std::shared_ptr<HttpConnection>> list;
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

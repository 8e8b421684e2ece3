// The connections of a server that are open, and which of them gives way to a new one.
//
// A connection enters once and leaves when it is destroyed, so this outlives whatever may own
// connections: queues of handlers included. Owns none of them. Any thread.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

namespace dorvo {

class HttpConnection;

class OpenConnections {
public:
    // As HttpLimits says of both.
    OpenConnections(size_t most, bool makeRoom) : most_(most), makeRoom_(makeRoom) {}
    OpenConnections(const OpenConnections&) = delete;
    OpenConnections& operator=(const OpenConnections&) = delete;

    // False when there is no room for it. May end another one for its sake.
    bool enter(uint64_t number, const std::shared_ptr<HttpConnection>& connection);
    // Whether the last request of the connection was Admission::known.
    void setKnown(uint64_t number, bool known);
    void leave(uint64_t number);

    // No connection enters any more.
    void shut();
    [[nodiscard]] std::vector<std::shared_ptr<HttpConnection>> all() const;
    // Whether all have left within that time.
    bool waitUntilEmpty(std::chrono::milliseconds patience);
    void waitUntilEmpty();

private:
    struct Entry {
        std::weak_ptr<HttpConnection> connection;
        bool known = false;
        bool ending = false;  // told to end, for another one's sake
    };

    const size_t most_;
    const bool makeRoom_;
    mutable std::mutex mutex_;  // guards what follows
    std::condition_variable left_;
    std::map<uint64_t, Entry> entries_;  // the oldest first
    size_t ending_ = 0;                  // of the entries
    bool shut_ = false;
};

}  // namespace dorvo

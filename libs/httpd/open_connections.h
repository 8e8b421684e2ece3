// The connections of a server that are open, and which of them gives way to a new one: the oldest
// of those from whom no valid session, or token, has been seen yet.
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
#include <string>
#include <vector>

#include "httpd/http_limits.h"

namespace dorvo {

class OpenConnections {
public:
    // What one of them can be told. Any thread.
    class Connection {
    public:
        Connection() = default;
        virtual ~Connection() = default;
        Connection(const Connection&) = delete;
        Connection& operator=(const Connection&) = delete;

        // Ends after the request in progress.
        virtual void finish() = 0;
        // Ends at once.
        virtual void abort() = 0;
    };

    enum class Standing : uint8_t {
        stranger,
        served,  // a stranger whose request the service has: gives way after all others
        known,   // its last request was from somebody known
    };

    explicit OpenConnections(const HttpLimits& limits);
    OpenConnections(const OpenConnections&) = delete;
    OpenConnections& operator=(const OpenConnections&) = delete;

    // False when there is no room for it: all there are known. May end another one for its sake,
    // one of the same network where there are too many of that.
    bool enter(uint64_t number, const std::string& address,
               const std::shared_ptr<Connection>& connection);
    void setStanding(uint64_t number, Standing standing);
    void leave(uint64_t number);
    // Ends one that gives way, if there is any.
    void giveWay();

    // No connection enters any more.
    void shut();
    [[nodiscard]] std::vector<std::shared_ptr<Connection>> all() const;
    // Whether all have left within that time.
    bool waitUntilEmpty(std::chrono::milliseconds patience);
    void waitUntilEmpty();

private:
    struct Entry {
        std::weak_ptr<Connection> connection;
        std::string network;
        Standing standing = Standing::stranger;
        bool ending = false;  // told to end, for another one's sake
    };

    // Under the lock. Null: of any network. Gives the connection that it has told to end, for its
    // caller to let go of after the lock, as it may be the last owner.
    bool endOne(const std::string* network, std::shared_ptr<Connection>& ended);
    void forget(const Entry& entry);

    const size_t most_;
    const size_t mostOfNetwork_;
    const std::vector<std::string> manyBehind_;
    mutable std::mutex mutex_;  // guards what follows
    std::condition_variable left_;
    std::map<uint64_t, Entry> entries_;        // the oldest first
    size_t staying_ = 0;                       // of the entries: those that aren't ending
    std::map<std::string, size_t> ofNetwork_;  // of those
    bool shut_ = false;
};

}  // namespace dorvo

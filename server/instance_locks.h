// One lock for each backup instance in use, so that requests about one backup come one at a time.
//
// A client that gave up on an answer may repeat its request while the first is still worked on;
// whole bodies of different backups must not wait for each other. Locks come and go with their
// users. Any thread.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <set>
#include <string>

namespace dorvo {

class InstanceLocks {
public:
    // Held by one thread until it goes out of scope.
    class Guard {
    public:
        Guard(InstanceLocks& locks, std::string name);
        ~Guard();
        Guard(const Guard&) = delete;
        Guard& operator=(const Guard&) = delete;

    private:
        InstanceLocks& locks_;
        std::string name_;
    };

    // Waiting longer than this ends in ServiceError 503.
    explicit InstanceLocks(std::chrono::milliseconds patience = std::chrono::seconds(30))
        : patience_(patience) {}

private:
    std::chrono::milliseconds patience_;
    std::mutex mutex_;  // guards held_
    std::condition_variable released_;
    std::set<std::string> held_;
};

}  // namespace dorvo

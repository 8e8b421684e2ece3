// One lock for each backup instance in use, so that requests about one backup come one at a time.
//
// A client that gave up on an answer may repeat its request while the first is still worked on;
// whole bodies of different backups must not wait for each other. Who comes to a backup that is
// being ended is sent away at once: its end may take as long as the disk does. So is who comes
// where others wait already: each that waits takes a worker from all users. Each user has names of
// their own, so that nobody can hold up a stranger's backup, or learn that it is there. Locks come
// and go with their users. Any thread.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <utility>

namespace dorvo {

class InstanceLocks {
public:
    enum class Hold { brief, ending };
    using Key = std::pair<int64_t, std::string>;  // the user's id, the backup's name

    // Holds the lock until it goes out of scope, on whatever thread.
    class Guard {
    public:
        // Throws ServiceError 503 when the backup is being ended, enough others wait for it, or the
        // patience is over.
        Guard(InstanceLocks& locks, int64_t user, std::string name, Hold hold = Hold::brief);
        ~Guard();
        Guard(const Guard&) = delete;
        Guard& operator=(const Guard&) = delete;

    private:
        InstanceLocks& locks_;
        Key key_;
    };

    // How long a brief hold is waited for.
    explicit InstanceLocks(std::chrono::milliseconds patience = std::chrono::seconds(30))
        : patience_(patience) {}

    // That wait for one backup: a client repeats a request once it has given up on the first.
    static constexpr size_t mostWaiting = 2;

private:
    class Waiting;

    std::chrono::milliseconds patience_;
    std::mutex mutex_;  // guards held_ and waiting_
    std::condition_variable released_;
    std::map<Key, Hold> held_;
    std::map<Key, size_t> waiting_;  // none that is 0
};

}  // namespace dorvo

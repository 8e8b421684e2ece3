// The last events of all jobs, numbered from 1, and those who wait for the next.
//
// Registered with the notification manager while it lives. Of more than `kept` events the oldest
// go: whoever is further behind misses them. Any thread.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "notify/jobnotifymanager.h"

namespace dorvo::agent {

class EventLog : public JobNotifyObserver {
public:
    static constexpr size_t defaultKept = 4096;

    struct Page {
        int64_t next = 0;                // the number of the last event that was looked at
        std::vector<std::string> texts;  // in order
    };
    using Take = std::function<void(Page page)>;

    explicit EventLog(size_t kept = defaultKept);
    ~EventLog() override;

    bool deliver(const std::string& text) override;

    // The number of the last event, 0 before the first.
    int64_t newest() const;

    // Calls `take` once, with the JSON texts of all events after that number: at once when there
    // are any, else on the thread that delivers the next, which holds this object's lock, so it
    // only hands the page on. A number that has not been given yet counts as the newest. Gives what
    // cancel() takes, 0 when `take` has been called.
    uint64_t waitForEvents(int64_t after, Take take);
    // The same with one text, {"id","state"} of the first event that has both.
    uint64_t waitForState(int64_t after, Take take);
    // `take` is not called any more.
    void cancel(uint64_t waiter);

private:
    struct Entry {
        std::string text;
        std::string state;  // {"id","state"}; empty for an event without them
    };
    struct Waiter {
        int64_t after = 0;
        bool states = false;
        Take take;
    };

    uint64_t wait(Waiter waiter);
    Page pageFor(const Waiter& waiter) const;  // without texts: nothing yet

    const size_t kept_;
    mutable std::mutex lock_;  // guards what follows
    std::deque<Entry> entries_;
    int64_t newest_ = 0;
    uint64_t lastWaiter_ = 0;
    std::map<uint64_t, Waiter> waiters_;
};

}  // namespace dorvo::agent

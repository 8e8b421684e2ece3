// Timers: what one calls when it is due, and the pending ones, ordered by deadline.
//
// Deadlines are local time in 100-nanosecond units, compared as unsigned numbers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace dorvo {

// What a timed object implements to be called by the timer dispatcher.
//
// The dispatcher borrows the handler while one of its timers is pending: cancel_timer before the
// object dies. Calls come on the dispatcher's worker thread, one at a time, under the dispatcher's
// re-entrant lock; a handler may schedule and cancel timers, its own included, and must take no
// lock under which another thread uses the dispatcher.
class Timeout_Handler {
public:
    // The argument of a call that is no expiry: the clock was changed, and the handler's pending
    // timer has been dropped so that it can schedule a new one.
    static constexpr uint64_t clockChanged = UINT64_MAX;

    Timeout_Handler() = default;

    // `arg` is the deadline that has come, or clockChanged.
    virtual void handle_timeout(uint64_t arg) = 0;
    virtual ~Timeout_Handler() = default;
    Timeout_Handler(const Timeout_Handler&) = delete;
    Timeout_Handler& operator=(const Timeout_Handler&) = delete;

    // The id of the timer scheduled last, -1 before the first. Stays after the timer has fired.
    int32_t timer_id() const { return timer_id_; }

private:
    friend class Io_Completion_Port_Ex;
    int32_t timer_id_ = -1;  // written and read under the dispatcher's lock
};

struct Timer_Entry {
    int32_t id;
    uint64_t deadline;
    Timeout_Handler* handler;  // borrowed
};

// A binary heap with the earliest at the front. No locking.
class Timer_Heap {
public:
    enum class Removed { none, inner, front };

    bool empty() const { return entries_.empty(); }
    size_t size() const { return entries_.size(); }
    // The earliest entry. The heap must not be empty.
    const Timer_Entry& front() const { return entries_.front(); }

    // Adds an entry behind those of the same deadline. True when it is earlier than all before it.
    bool push(const Timer_Entry& entry);
    // Takes out the earliest entry. The heap must not be empty.
    Timer_Entry pop();
    // Takes out the entry with the id and says where it stood; `front` only when others remain.
    Removed remove(int32_t id);

    // How long to wait for a packet, in milliseconds, while `deadline` is the earliest: never 0 and
    // never without limit. A deadline that is due, or less than a millisecond away, gives a second:
    // the packet of the call that scheduled it comes first.
    static uint32_t wait_ms(uint64_t deadline, uint64_t now);

private:
    std::vector<Timer_Entry> entries_;
};

}  // namespace dorvo

// Pending timers ordered by deadline: a binary heap with the earliest at the front.
//
// Deadlines are local time in 100-nanosecond units, compared as unsigned numbers. No locking.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace dorvo {

class Timeout_Handler;

struct Timer_Entry {
    int32_t id;
    uint64_t deadline;
    Timeout_Handler* handler;  // borrowed
};

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

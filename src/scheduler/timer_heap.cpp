#include "scheduler/timer_heap.h"

#include <algorithm>

namespace dorvo {
namespace {

constexpr uint64_t ticksPerMillisecond = 10'000;
constexpr uint32_t overdueWaitMs = 1000;
constexpr uint32_t longestWaitMs = 0xFFFFFFFE;  // one more would mean no limit

bool later(const Timer_Entry& a, const Timer_Entry& b) {
    return a.deadline > b.deadline;
}

}  // namespace

bool Timer_Heap::push(const Timer_Entry& entry) {
    const uint64_t earliest = entries_.empty() ? UINT64_MAX : entries_.front().deadline;
    entries_.push_back(entry);
    std::push_heap(entries_.begin(), entries_.end(), later);
    return entry.deadline < earliest;
}

Timer_Entry Timer_Heap::pop() {
    std::pop_heap(entries_.begin(), entries_.end(), later);
    const Timer_Entry entry = entries_.back();
    entries_.pop_back();
    return entry;
}

Timer_Heap::Removed Timer_Heap::remove(int32_t id) {
    const auto found = std::find_if(entries_.begin(), entries_.end(),
                                    [&](const Timer_Entry& entry) { return entry.id == id; });
    if (found == entries_.end()) {
        return Removed::none;
    }
    const bool first = found == entries_.begin() && entries_.size() > 1;
    entries_.erase(found);
    std::make_heap(entries_.begin(), entries_.end(), later);
    return first ? Removed::front : Removed::inner;
}

uint32_t Timer_Heap::wait_ms(uint64_t deadline, uint64_t now) {
    if (now >= deadline) {
        return overdueWaitMs;
    }
    const uint64_t ms = (deadline - now) / ticksPerMillisecond;
    if (ms == 0) {
        return overdueWaitMs;
    }
    return static_cast<uint32_t>(std::min<uint64_t>(ms, longestWaitMs));
}

}  // namespace dorvo

// What a timed object implements to be called by the timer dispatcher.
//
// The dispatcher borrows the handler while one of its timers is pending: cancel_timer before the
// object dies. Calls come on the dispatcher's worker thread, one at a time, under the dispatcher's
// re-entrant lock; a handler may schedule and cancel timers, its own included, and must take no
// lock under which another thread uses the dispatcher.
#pragma once

#include <cstdint>

namespace dorvo {

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

}  // namespace dorvo

// A completion port with timers: one worker thread delivers the packets that are posted and calls
// the handlers of the timers that are due.
//
// Timer handlers run under the object's re-entrant lock, so that after cancel_timer has returned on
// another thread the handler is neither running nor called again. Packets are delivered without
// that lock. Any thread may call any member, with one exception: close() and wait() fail on the
// worker itself. Deadlines are local time in 100-nanosecond units, so a change of the clock moves
// them all: see notify_time_change.
#pragma once

#include <windows.h>

#include <atomic>
#include <deque>
#include <memory>
#include <mutex>

#include "base/critical_section.h"
#include "base/local_time.h"
#include "scheduler/io_completion_port.h"
#include "scheduler/timer_heap.h"

namespace dorvo {

class Io_Completion_Port_Ex {
public:
    using Timeout_Handler = dorvo::Timeout_Handler;
    using Clock = uint64_t (*)();

    explicit Io_Completion_Port_Ex(Clock clock = localTimeNow) : clock_(clock), wake_(this) {}
    // Neither waits nor locks: close() comes before, or the process ends.
    ~Io_Completion_Port_Ex() = default;
    Io_Completion_Port_Ex(const Io_Completion_Port_Ex&) = delete;
    Io_Completion_Port_Ex& operator=(const Io_Completion_Port_Ex&) = delete;

    // Makes a port and installs it. False with the thread's last error.
    bool open();
    // Replaces the port, also under a waiting worker, which deals with what waits in the old one
    // before it closes it and turns to the new one.
    void install(std::shared_ptr<Io_Completion_Port> port);
    // Starts the worker; false while one runs, or with the thread's last error.
    bool activate();
    // Ends the worker after the packets posted so far, joins it, delivers what was posted
    // meanwhile, and closes the port. Pending timers stay. Idempotent.
    bool close();
    // Blocks until the worker has ended.
    bool wait();
    // Has every pending timer's handler called with Timeout_Handler::clockChanged.
    bool notify_time_change();
    // Fires what has come due while the machine slept, and waits anew for the rest: the system does
    // not count the time of a sleep. The clock is the same, so no handler is told of a change.
    bool notify_wake();

    // The clock that deadlines are compared with.
    uint64_t now() const { return clock_(); }

    // Posts a packet for `event`. False with the thread's last error; never blocks on a handler.
    bool post(DWORD bytes, Io_Completion_Port::Event* event, OVERLAPPED* overlapped);

    // Returns the timer's id; -1 with the thread's last error when the worker could not be woken:
    // the timer is pending all the same. The handler is borrowed until the timer has fired or was
    // cancelled. Scheduling a handler again adds a timer, and only the last can be cancelled.
    long schedule_timer(Timeout_Handler* handler, uint64_t deadline);
    // 0, or -1: the handler was never scheduled, or its timer is no longer pending
    // (ERROR_NOT_FOUND).
    int cancel_timer(Timeout_Handler* handler);

private:
    // The key of the packets that the dispatcher posts to its own worker.
    class Wake : public Io_Completion_Port::Event {
    public:
        explicit Wake(Io_Completion_Port_Ex* owner) : owner_(owner) {}
        void completion(DWORD bytes, ULONG_PTR key, OVERLAPPED* overlapped) override;

    private:
        Io_Completion_Port_Ex* owner_;
    };

    static DWORD WINAPI worker(void* self);
    DWORD work();
    // Waits for one packet or deadline. 0: a packet was handled; WAIT_TIMEOUT: timers were fired;
    // 259: the packet that ends the worker; else the port's error.
    DWORD step(DWORD timeout_ms);
    DWORD wait_time(DWORD timeout_ms);
    bool post_wake(int64_t value);
    void fire_due();
    void rearm();
    bool on_worker() const { return worker_id_.load() == GetCurrentThreadId(); }
    static DWORD deliver(const Io_Completion_Port::Packet& packet);
    void drain();

    Clock clock_;
    Wake wake_;
    std::mutex port_lock_;  // guards ports_; a packet is posted under it
    // The worker reads the first until it is empty and replaced; packets are posted to the last.
    std::deque<std::shared_ptr<Io_Completion_Port>> ports_;
    CriticalSection lock_;  // guards what follows and every call into a handler
    Timer_Heap heap_;
    Timer_Heap rearming_;  // entries that a clock change has yet to announce
    int32_t last_id_ = 0;
    std::mutex life_;  // guards thread_, and keeps activate and close apart
    HANDLE thread_ = nullptr;
    std::atomic<DWORD> worker_id_{0};
};

}  // namespace dorvo

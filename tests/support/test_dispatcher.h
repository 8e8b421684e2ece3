// A timer dispatcher on a clock that the test moves: nothing fires by the wall clock.
//
// One at a time. Deadlines are local time of the zone.
#pragma once

#include <gtest/gtest.h>

#include "base/local_time.h"
#include "scheduler/io_completion_port_ex.h"
#include "scheduler/schedulecalendar.h"
#include "support/signal.h"
#include "support/test_zone.h"

namespace dorvo::test {

class TestDispatcher {
public:
    explicit TestDispatcher(TestZone& zone) : port_(localNow) {
        current_ = this;
        zone_ = &zone;
    }
    ~TestDispatcher() {
        EXPECT_TRUE(port_.close());
        current_ = nullptr;
    }
    TestDispatcher(const TestDispatcher&) = delete;
    TestDispatcher& operator=(const TestDispatcher&) = delete;

    static Io_Completion_Port_Ex* current() { return current_ == nullptr ? nullptr : port(); }
    static Io_Completion_Port_Ex* port() { return &current_->port_; }

    void run() {
        ASSERT_TRUE(port_.open());
        ASSERT_TRUE(port_.activate());
    }
    // Fires what is due; returns when the handlers have been called.
    void fire() {
        Nothing nothing;
        port_.schedule_timer(&nothing, 0);  // the packet that wakes the worker fires what is due
        catchUp();
    }
    // Moves the clock on and fires what is due then.
    void advance(int64_t to) {
        zone_->time = to;
        fire();
    }
    // Sets the clock, of which the dispatcher is told.
    void setClock(int64_t to) {
        catchUp();  // what was posted before would fire what is due afterwards
        zone_->time = to;
        EXPECT_TRUE(port_.notify_time_change());
        catchUp();
    }

    // The machine has slept until then; the dispatcher is told.
    void wake(int64_t at) {
        catchUp();
        zone_->time = at;
        EXPECT_TRUE(port_.notify_wake());
        catchUp();
    }

private:
    class Nothing : public Timeout_Handler {
    public:
        void handle_timeout(uint64_t) override {}
    };
    class Reached : public Io_Completion_Port::Event {
    public:
        void completion(DWORD, ULONG_PTR, OVERLAPPED*) override { signal.set(); }
        Signal signal;
    };

    static uint64_t localNow() { return localCount(*zone_, zone_->time); }
    void catchUp() {
        Reached reached;
        ASSERT_TRUE(port_.post(0, &reached, nullptr));
        ASSERT_TRUE(reached.signal.wait());
    }

    static inline TestDispatcher* current_ = nullptr;
    static inline TestZone* zone_ = nullptr;
    Io_Completion_Port_Ex port_;
};

}  // namespace dorvo::test

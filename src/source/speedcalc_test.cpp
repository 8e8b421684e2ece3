#include "source/speedcalc.h"

#include <gtest/gtest.h>

#include "base/local_time.h"
#include "record/jobactivity.h"
#include "scheduler/iocp_dispatcher.h"

namespace dorvo {
namespace {

// The dispatcher has no worker here: timers are recorded and never fire by themselves.
class SpeedClock : public testing::Test {
protected:
    void SetUp() override { activity_.reset(static_cast<int32_t>(JobState::running), true); }

    // Returns when the clock has moved on.
    static void tick() {
        const uint64_t start = localTimeNow();
        while (localTimeNow() == start) {
        }
    }

    JobActivity activity_{};
};

TEST_F(SpeedClock, CountsEverySliceOnce) {
    constexpr uint64_t before = 7 * ticksPerSecond;
    activity_.usedTime = before;
    const uint64_t earliest = localTimeNow();
    uint64_t started = 0;
    uint64_t fired = 0;
    {
        SpeedCalc clock(activity_);
        started = localTimeNow();
        EXPECT_EQ(activity_.usedTime, before);
        tick();
        fired = localTimeNow();
        clock.handle_timeout(fired);
        EXPECT_GE(activity_.usedTime - before, fired - started);
        tick();
        clock.handle_timeout(Timeout_Handler::clockChanged);
        tick();
    }
    const uint64_t ended = localTimeNow();
    EXPECT_GT(activity_.usedTime - before, fired - started);
    EXPECT_LE(activity_.usedTime - before, ended - earliest);
}

TEST_F(SpeedClock, HasOneTimerPendingUntilItsEnd) {
    const auto pending = [] {
        // A timer's id tells how many were scheduled before it.
        struct Probe : Timeout_Handler {
            void handle_timeout(uint64_t) override {}
        } probe;
        Iocp_Dispatcher::instance()->schedule_timer(&probe, UINT64_MAX);
        Iocp_Dispatcher::instance()->cancel_timer(&probe);
        return probe.timer_id();
    };
    const int32_t first = pending();
    SpeedCalc clock(activity_);
    EXPECT_EQ(clock.timer_id(), first + 1);
    clock.handle_timeout(0);
    EXPECT_EQ(clock.timer_id(), first + 2);
    clock.handle_timeout(Timeout_Handler::clockChanged);
    EXPECT_GT(clock.timer_id(), first + 2);
    EXPECT_EQ(Iocp_Dispatcher::instance()->cancel_timer(&clock), 0);
    EXPECT_EQ(Iocp_Dispatcher::instance()->cancel_timer(&clock), -1);
}

}  // namespace
}  // namespace dorvo

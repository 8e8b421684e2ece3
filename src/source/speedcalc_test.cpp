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
    SpeedClock() { activity_.reset(static_cast<int32_t>(JobState::running), true); }

    JobActivity activity_{};
};

TEST_F(SpeedClock, CountsEverySliceOnce) {
    constexpr uint64_t before = 7 * ticksPerSecond;
    activity_.usedTime = before;
    const uint64_t earliest = localTimeNow();
    uint64_t least = 0;
    {
        SpeedCalc clock(activity_);
        const uint64_t started = localTimeNow();
        EXPECT_EQ(activity_.usedTime, before);
        for (const uint64_t call : {uint64_t{1}, Timeout_Handler::clockChanged}) {
            while (localTimeNow() == started + least) {
            }
            least = localTimeNow() - started;
            clock.handle_timeout(call);
            EXPECT_GE(activity_.usedTime - before, least);
        }
    }
    EXPECT_LE(activity_.usedTime - before, localTimeNow() - earliest);
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

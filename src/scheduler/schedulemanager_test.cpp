#include "scheduler/schedulemanager.h"

#include <vector>

#include "scheduler/scheduleclock.h"
#include "support/log_capture.h"
#include "support/test_dispatcher.h"

namespace dorvo {
namespace {

using namespace test;
using Commands = std::vector<std::string>;

class ScheduleManager : public testing::Test {
protected:
    ScheduleManager() : dispatcher_(zone_), manager_(TestDispatcher::current, zone_) {
        zone_.time = zone_.at("2026-01-05 09:00:00");
        given_.clear();
        manager_.commands([](const std::string& id, const char* command) {
            given_.push_back(id + " " + command);
        });
        dispatcher_.run();
    }
    ~ScheduleManager() override { manager_.stop(); }

    // What the handlers have asked for since the last call.
    static Commands taken() { return std::exchange(given_, {}); }
    bool schedule(const std::string& id, const char* time) {
        return manager_.Schedule(zone_.at(time), id);
    }

    static inline Commands given_;  // added to on the dispatcher's worker, read when it is idle
    TestZone zone_;
    TestDispatcher dispatcher_;
    ScheduleManagerImpl manager_;
    LogCapture log_;
};

TEST_F(ScheduleManager, HasOneTimerAJob) {
    EXPECT_TRUE(schedule("a", "2026-01-05 10:00:00"));
    const ScheduleHandler* const handler = manager_.FindSchedule("a");
    EXPECT_TRUE(schedule("a", "2026-01-05 11:00:00"));
    EXPECT_EQ(manager_.FindSchedule("a"), handler);
    dispatcher_.advance(zone_.at("2026-01-05 10:30:00"));
    EXPECT_EQ(taken(), Commands{});
    dispatcher_.advance(zone_.at("2026-01-05 11:00:00"));
    EXPECT_EQ(taken(), Commands{"a start"});
    EXPECT_TRUE(manager_.Reschedule(zone_.at("2026-01-05 13:00:00"), "a")) << "it has fired";
    EXPECT_TRUE(manager_.Reschedule(zone_.at("2026-01-05 12:00:00"), manager_.FindSchedule("a")));
    dispatcher_.advance(zone_.at("2026-01-05 12:00:00"));
    EXPECT_EQ(taken(), Commands{"a start"});
    EXPECT_TRUE(manager_.Unschedule("a"));
    EXPECT_TRUE(schedule("a", "2026-01-05 14:00:00"));
    EXPECT_TRUE(manager_.Unschedule("a"));
    dispatcher_.advance(zone_.at("2026-01-06 00:00:00"));
    EXPECT_EQ(taken(), Commands{});
}

TEST_F(ScheduleManager, AFailureLeavesWhatWasPending) {
    EXPECT_FALSE(manager_.Schedule(-1, "a") || manager_.Reschedule(zone_.time, "a") ||
                 manager_.Reschedule(zone_.time, static_cast<ScheduleHandler*>(nullptr)) ||
                 manager_.Unschedule("a"));
    EXPECT_TRUE(schedule("kept", "2026-01-05 10:00:00"));
    EXPECT_TRUE(TestDispatcher::port()->close());
    EXPECT_FALSE(schedule("a", "2026-01-05 08:00:00")) << "nobody can be woken";
    EXPECT_EQ(manager_.FindSchedule("a"), nullptr);
    EXPECT_FALSE(schedule("kept", "2026-01-05 08:30:00"));
    dispatcher_.run();
    dispatcher_.fire();
    EXPECT_EQ(taken(), Commands{"kept start"}) << "what failed is gone, or pending all the same";

    ScheduleManagerImpl nowhere([]() -> Io_Completion_Port_Ex* { return nullptr; }, zone_);
    EXPECT_FALSE(nowhere.Schedule(zone_.time, "a") || nowhere.Unschedule("a"));
}

TEST_F(ScheduleManager, StopsForGood) {
    EXPECT_TRUE(schedule("a", "2026-01-05 10:00:00"));
    manager_.stop();
    EXPECT_TRUE(schedule("a", "2026-01-05 10:00:00"));
    EXPECT_TRUE(manager_.Unschedule("a"));
    dispatcher_.advance(zone_.at("2026-01-06 00:00:00"));
    EXPECT_EQ(taken(), Commands{});
}

TEST(SystemScheduleClock, AgreesWithTheClockOfTheTimers) {
    const ScheduleClock& clock = systemScheduleClock();
    const uint64_t before = localTimeNow();
    const int64_t now = clock.now();
    const uint64_t after = localTimeNow();
    EXPECT_LE(before - before % ticksPerSecond, localCount(clock, now));
    EXPECT_GE(after, localCount(clock, now));
    std::tm parts{};
    ASSERT_TRUE(clock.local(now, parts));
    EXPECT_EQ(clock.instant(parts), now);
    EXPECT_FALSE(clock.local(-1, parts));
}

}  // namespace
}  // namespace dorvo

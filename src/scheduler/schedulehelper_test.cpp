#include "scheduler/schedulehelper.h"

#include <gtest/gtest.h>

#include <vector>

#include "scheduler/schedulecalendar.h"
#include "support/test_zone.h"

namespace dorvo {
namespace {

// 2026: daylight-saving time from Sunday, March 8 to Sunday, November 1.
class Schedules : public testing::Test {
protected:
    DailyScheduleHelper daily(int hour, int minute, const char* start = nullptr) const {
        return {zone_, count(start), hour, minute, 0};
    }
    WeeklyScheduleHelper weekly(int day, int hour, int minute, const char* start = nullptr) const {
        return {zone_, count(start), day, hour, minute, 0};
    }
    MonthlyScheduleHelper monthly(int day, int hour, int minute,
                                  const char* start = nullptr) const {
        return {zone_, count(start), day, hour, minute, 0};
    }
    uint64_t count(const char* time) const {
        return time == nullptr ? 0 : localCount(zone_, zone_.at(time));
    }
    // The next due time from `now` on.
    std::string next(const ScheduleHelper& helper, const char* now, const char* after = nullptr) {
        zone_.time = zone_.at(now);
        const int64_t due = helper.TimeOfNextScheduleImpl(after == nullptr ? 0 : zone_.at(after));
        if (after == nullptr) {
            EXPECT_EQ(helper.secondsUntilNext(), due - zone_.time);
        }
        return zone_.text(due);
    }
    // The due times that follow one upon the other, each planned when the one before has come.
    std::vector<std::string> run(const ScheduleHelper& helper, const char* from, int times) {
        zone_.time = zone_.at(from);
        std::vector<std::string> all;
        for (int i = 0; i < times; ++i) {
            zone_.time = helper.TimeOfNextScheduleImpl(0);
            all.push_back(zone_.text(zone_.time));
        }
        return all;
    }

    test::TestZone zone_;
};

using Times = std::vector<std::string>;

TEST_F(Schedules, AreDueOnceAPeriod) {
    EXPECT_EQ(next(daily(9, 30), "2026-01-05 09:29:59"), "2026-01-05 09:30:00");
    EXPECT_EQ(next(daily(9, 30), "2026-01-05 09:30:00"), "2026-01-06 09:30:00");
    EXPECT_EQ(next(daily(0, 0), "2026-12-31 12:00:00"), "2027-01-01 00:00:00");
    EXPECT_EQ(next(daily(23, 59), "2027-12-31 23:59:00"), "2028-01-01 23:59:00");
    // January 5 is a Monday.
    EXPECT_EQ(next(weekly(1, 9, 0), "2026-01-05 08:00:00"), "2026-01-05 09:00:00");
    EXPECT_EQ(next(weekly(0, 9, 0), "2026-01-05 08:00:00"), "2026-01-11 09:00:00");
    EXPECT_EQ(next(weekly(6, 9, 0), "2026-12-30 08:00:00"), "2027-01-02 09:00:00");
    EXPECT_EQ(next(weekly(3, 9, 0), "2026-12-30 09:00:00"), "2027-01-06 09:00:00");
    EXPECT_EQ(next(monthly(1, 0, 0), "2026-12-15 00:00:00"), "2027-01-01 00:00:00");
    EXPECT_EQ(run(monthly(31, 22, 0), "2027-11-30 22:00:00", 6),
              (Times{"2027-12-31 22:00:00", "2028-01-31 22:00:00", "2028-02-29 22:00:00",
                     "2028-03-31 22:00:00d", "2028-04-30 22:00:00d", "2028-05-31 22:00:00d"}));
    EXPECT_EQ(run(monthly(29, 1, 0), "2027-01-29 02:00:00", 2),
              (Times{"2027-02-28 01:00:00", "2027-03-29 01:00:00d"}));
}

TEST_F(Schedules, AreDueOnTheWallWhenTheSeasonChanges) {
    EXPECT_EQ(run(daily(9, 0), "2026-03-07 08:00:00", 3),
              (Times{"2026-03-07 09:00:00", "2026-03-08 09:00:00d", "2026-03-09 09:00:00d"}));
    EXPECT_EQ(run(daily(9, 0), "2026-10-31 08:00:00d", 3),
              (Times{"2026-10-31 09:00:00d", "2026-11-01 09:00:00", "2026-11-02 09:00:00"}));
    EXPECT_EQ(run(weekly(5, 9, 0), "2026-03-06 10:00:00", 2),
              (Times{"2026-03-13 09:00:00d", "2026-03-20 09:00:00d"}));
    EXPECT_EQ(run(monthly(15, 9, 0), "2026-02-20 10:00:00", 2),
              (Times{"2026-03-15 09:00:00d", "2026-04-15 09:00:00d"}));
    // The hour that is missing, and the one that comes twice.
    EXPECT_EQ(run(daily(2, 30), "2026-03-08 00:00:00", 2),
              (Times{"2026-03-08 03:30:00d", "2026-03-09 02:30:00d"}));
    EXPECT_EQ(run(daily(1, 30), "2026-11-01 00:00:00d", 2),
              (Times{"2026-11-01 01:30:00d", "2026-11-02 01:30:00"}));
    EXPECT_EQ(next(daily(1, 30), "2026-11-01 01:10:00"), "2026-11-02 01:30:00");
}

TEST_F(Schedules, KeepTheFiguresOfAPeriodWhateverTheClocksDo) {
    const int64_t march = zone_.at("2026-03-20 12:00:00d");
    EXPECT_EQ(zone_.text(monthly(15, 9, 0).dueInPeriod(march)), "2026-03-15 10:00:00d");
    EXPECT_EQ(zone_.text(monthly(15, 9, 0).dueInNextPeriod(march)), "2026-04-15 10:00:00d");
    EXPECT_EQ(zone_.text(weekly(5, 9, 0).dueInPeriod(zone_.at("2026-03-08 12:00:00d"))),
              "2026-03-13 10:00:00d");
    EXPECT_EQ(zone_.text(daily(9, 0).dueInPeriod(zone_.at("2026-11-01 12:00:00"))),
              "2026-11-01 08:00:00");
}

TEST_F(Schedules, AreLaterThanWhatIsGivenAndNotBeforeTheirStart) {
    EXPECT_EQ(next(daily(9, 0), "2026-01-05 08:00:00", "2026-01-05 09:00:00"),
              "2026-01-06 09:00:00");
    EXPECT_EQ(next(daily(9, 0), "2026-01-05 08:00:00", "2026-01-20 08:59:59"),
              "2026-01-20 09:00:00");
    EXPECT_EQ(next(daily(9, 0, "2026-01-05 09:00:00"), "2026-01-01 00:00:00"),
              "2026-01-05 09:00:00");
    EXPECT_EQ(next(daily(9, 0, "2026-01-05 09:00:01"), "2026-01-01 00:00:00"),
              "2026-01-06 09:00:00");
    EXPECT_EQ(next(weekly(2, 9, 0, "2031-05-01 00:00:00"), "2026-01-01 00:00:00"),
              "2031-05-06 09:00:00d");
    EXPECT_EQ(next(monthly(31, 9, 0, "2028-02-10 00:00:00"), "2026-01-01 00:00:00"),
              "2028-02-29 09:00:00");
    EXPECT_EQ(next(daily(9, 0, "2026-01-05 09:00:00"), "2026-02-01 10:00:00"),
              "2026-02-02 09:00:00")
        << "a start that has passed says nothing";
    // In summer a start counts an hour late: it is taken for standard time.
    EXPECT_EQ(zone_.text(daily(9, 0, "2026-07-01 08:30:00d").startTime()), "2026-07-01 09:30:00d");
}

TEST_F(Schedules, AStartOnTheWallIsToldInStandardTime) {
    // What the clock shows, and the instant that a helper then starts at.
    const std::pair<const char*, const char*> rows[] = {
        {"2026-01-05 09:00:00", "2026-01-05 09:00:00"},
        {"2026-07-01 08:30:00d", "2026-07-01 08:30:00d"},
        {"2026-11-01 01:30:00", "2026-11-01 01:30:00d"},  // the first of two
        {"2026-11-01 02:00:00", "2026-11-01 02:00:00"},
    };
    for (const auto& [wall, start] : rows) {
        const uint64_t shown = localCount(zone_, zone_.at(wall));
        EXPECT_EQ(zone_.text(standardInstant(zone_, standardCount(zone_, shown))), start);
    }
    EXPECT_EQ(standardCount(zone_, 0), 0U);
    EXPECT_EQ(standardCount(zone_, UINT64_MAX), UINT64_MAX);
}

TEST_F(Schedules, SayWhenTheClockFails) {
    const DailyScheduleHelper helper = daily(9, 0);
    EXPECT_EQ(daily(9, 0).startTime(), -1) << "there is none";
    EXPECT_EQ(next(daily(9, 0), "2026-01-05 08:00:00", "3000-12-31 09:00:00"), "no time");
    zone_.broken = true;
    EXPECT_EQ(helper.TimeOfNextScheduleImpl(0), -1);
    EXPECT_EQ(helper.secondsUntilNext(), -1);
    EXPECT_EQ(monthly(1, 0, 0).period(0), -86'400);
    EXPECT_EQ(weekly(1, 0, 0).dueInNextPeriod(0), -1);
    EXPECT_EQ(localCount(zone_, 0), 0U);
}

TEST_F(Schedules, KnowTheDaysOfMonths) {
    EXPECT_EQ(daysOfMonth(zone_, 2026, 3), 30);
    EXPECT_EQ(daysOfMonth(zone_, 2028, 1), 29);
    EXPECT_EQ(daysOfMonth(zone_, 2100, 1), 28);
    EXPECT_EQ(daysOfMonth(zone_, 2000, 1), 29);
    for (const auto& [year, month] : {std::pair{1899, 1}, {2026, 12}, {2026, -1}, {1950, 1}}) {
        EXPECT_EQ(daysOfMonth(zone_, year, month), -1) << year;
    }
}

}  // namespace
}  // namespace dorvo

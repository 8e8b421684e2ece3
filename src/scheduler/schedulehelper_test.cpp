#include "scheduler/schedulehelper.h"

#include <gtest/gtest.h>

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
    test::TestZone zone_;
};

// When they are due in zones of all kinds is told by schedulezones_test.cpp.
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
    const char* const start = "2026-01-05 09:00:00";
    const struct {
        std::unique_ptr<ScheduleHelper> helper;
        const char* now;
        const char* after;
        const char* due;
    } rows[] = {
        {daily(9, 0).clone(), "2026-01-05 08:00:00", start, "2026-01-06 09:00:00"},
        {daily(9, 0).clone(), "2026-01-05 08:00:00", "2026-01-20 08:59:59", "2026-01-20 09:00:00"},
        {daily(9, 0, start).clone(), "2026-01-01 00:00:00", nullptr, start},
        {daily(9, 0, "2026-01-05 09:00:01").clone(), start, nullptr, "2026-01-06 09:00:00"},
        {weekly(2, 9, 0, "2031-05-01 00:00:00").clone(), start, nullptr, "2031-05-06 09:00:00d"},
        {monthly(31, 9, 0, "2028-02-10 00:00:00").clone(), start, nullptr, "2028-02-29 09:00:00"},
        {daily(9, 0, start).clone(), "2026-02-01 10:00:00", nullptr, "2026-02-02 09:00:00"},
        {daily(9, 0).clone(), start, "3000-12-31 09:00:00", "no time"},
        // The later one of the two times of the autumn.
        {daily(1, 30).clone(), "2026-11-01 01:10:00", nullptr, "2026-11-02 01:30:00"},
    };
    for (const auto& row : rows) {
        zone_.time = zone_.at(row.now);
        const int64_t due =
            row.helper->TimeOfNextScheduleImpl(row.after == nullptr ? 0 : zone_.at(row.after));
        EXPECT_EQ(zone_.text(due), row.due) << row.now;
        EXPECT_TRUE(row.after != nullptr || row.helper->secondsUntilNext() == due - zone_.time);
    }
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

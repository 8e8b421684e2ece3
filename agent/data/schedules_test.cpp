#include "data/schedules.h"

#include <gtest/gtest.h>

#include "support/test_zone.h"
#include "text/format.h"

namespace dorvo::agent {
namespace {

struct Row {
    const char* name;
    JobSchedule schedule;
    const char* start;      // null: the schedule has none
    const char* completed;  // null: never
    const char* now;
    bool overdue;
};

// 2026: daylight-saving time from Sunday, March 8 to Sunday, November 1. January 5 is a Monday.
TEST(Overdue, TwoDueTimesAfterTheLastCompletion) {
    const JobSchedule daily{.kind = ScheduleKind::daily, .hour = 2};
    const JobSchedule weekly{.kind = ScheduleKind::weekly, .day = 1, .hour = 2};
    const JobSchedule monthly{.kind = ScheduleKind::monthly, .day = 31, .hour = 2};
    const JobSchedule manual{};
    for (const Row& row : {
             Row{"one due time missed", daily, nullptr, "2026-01-05 02:10:00",
                 "2026-01-07 01:59:59", false},
             Row{"two missed", daily, nullptr, "2026-01-05 02:10:00", "2026-01-07 02:00:00", true},
             Row{"completed by hand before the due time", daily, nullptr, "2026-01-05 01:00:00",
                 "2026-01-06 02:00:00", true},
             Row{"completed just at a due time", daily, nullptr, "2026-01-05 02:00:00",
                 "2026-01-06 12:00:00", false},
             Row{"the clocks change in between", daily, nullptr, "2026-03-07 03:00:00",
                 "2026-03-09 01:59:59d", false},
             Row{"weekly", weekly, nullptr, "2026-01-05 03:00:00", "2026-01-19 02:00:00", true},
             Row{"monthly, in a short month", monthly, nullptr, "2026-01-31 03:00:00",
                 "2026-03-31 01:59:59d", false},
             Row{"monthly", monthly, nullptr, "2026-01-31 03:00:00", "2026-03-31 02:00:00d", true},
             Row{"never completed", daily, "2026-01-05 12:00:00", nullptr, "2026-01-07 02:00:00",
                 true},
             Row{"never completed, due just at the start", daily, "2026-01-05 02:00:00", nullptr,
                 "2026-01-06 02:00:00", true},
             Row{"scheduled after the last completion", daily, "2026-01-10 12:00:00",
                 "2026-01-01 12:00:00", "2026-01-11 12:00:00", false},
             Row{"no start to count from", daily, nullptr, nullptr, "2026-01-07 02:00:00", false},
             Row{"the clock was set back by years", daily, "2026-01-01 12:00:00",
                 "2031-01-07 02:10:00", "2026-01-07 02:00:00", true},
             Row{"by hand", manual, nullptr, "2026-01-01 02:00:00", "2026-12-01 02:00:00", false},
         }) {
        test::TestZone zone;
        JobSchedule schedule = row.schedule;
        if (row.start != nullptr) {
            constexpr int64_t behindUtc = int64_t{8} * 3600;  // the zone's clock in winter
            schedule.start = ticksOfInstant(zone.at(row.start) - behindUtc);
        }
        zone.time = zone.at(row.now);
        std::optional<int64_t> completed;
        if (row.completed != nullptr) {
            completed = zone.at(row.completed);
        }
        EXPECT_EQ(isOverdue(schedule, completed, zone), row.overdue) << row.name;
    }
}

}  // namespace
}  // namespace dorvo::agent

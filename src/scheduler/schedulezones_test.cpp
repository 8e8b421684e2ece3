// Due times in zones of all kinds, against a model that knows nothing but what the clock on the
// wall shows, minute by minute.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <vector>

#include "scheduler/schedulecalendar.h"
#include "scheduler/schedulehelper.h"
#include "support/test_zone.h"

namespace dorvo {
namespace {

using std::chrono::days;
using std::chrono::sys_days;
using test::ZoneRules;

constexpr sys_days firstDay = std::chrono::year(2026) / 1 / 1;
constexpr sys_days lastDay = std::chrono::year(2028) / 3 / 31;  // a leap year's February is in it

int64_t secondsTo(sys_days day) {
    return std::chrono::sys_seconds(day).time_since_epoch().count();
}

// A due time of day, and the dates that have one.
struct Plan {
    int weekday = -1;  // of a weekly one
    int monthday = -1;
    int minute = 0;  // of the day

    bool has(sys_days date) const {
        const std::chrono::year_month_day parts(date);
        const auto last = static_cast<int>(
            static_cast<unsigned>((parts.year() / parts.month() / std::chrono::last).day()));
        const auto day = static_cast<int>(static_cast<unsigned>(parts.day()));
        return (weekday == -1 ||
                std::chrono::weekday(date).c_encoding() == static_cast<unsigned>(weekday)) &&
               (monthday == -1 || day == std::min(monthday, last));
    }
    std::unique_ptr<ScheduleHelper> helper(const ScheduleClock& clock) const {
        const int hour = minute / 60;
        const int rest = minute % 60;
        if (weekday != -1) {
            return std::make_unique<WeeklyScheduleHelper>(clock, 0, weekday, hour, rest, 0);
        }
        if (monthday != -1) {
            return std::make_unique<MonthlyScheduleHelper>(clock, 0, monthday, hour, rest, 0);
        }
        return std::make_unique<DailyScheduleHelper>(clock, 0, hour, rest, 0);
    }
};

class WallModel {
public:
    explicit WallModel(const ScheduleClock& clock) {
        for (int64_t at = begin_; at < secondsTo(lastDay + days(3)); at += 60) {
            wall_.push_back(*wallTime(clock, at));
        }
    }

    // The first minute that shows the time; where the clocks skip it, as many minutes after they
    // were set on as it lies behind the time at which they were.
    int64_t instantOf(int64_t wall) const {
        const auto shown = static_cast<size_t>((wall - begin_) / 60);
        constexpr size_t around = 1500;
        size_t skipped = 0;
        for (size_t i = shown - around; i < shown + around; ++i) {
            if (wall_[i] == wall) {
                return begin_ + static_cast<int64_t>(i) * 60;
            }
            if (wall_[i] < wall && wall_[i + 1] > wall) {
                skipped = i;
            }
        }
        return begin_ + static_cast<int64_t>(skipped) * 60 + (wall - wall_[skipped]);
    }

private:
    int64_t begin_ = secondsTo(firstDay - days(3));
    std::vector<int64_t> wall_;  // from begin_ on
};

struct Zone {
    const char* name;
    ZoneRules rules;
};

constexpr Zone zones[] = {
    {"none, half an hour", {.standard = 330, .saving = 0}},
    {"the middle of America", {}},
    {"behind UTC, an odd half hour", {.standard = -210}},
    {"Europe", {60, 60, {3, 5, 0, 120}, {10, 5, 0, 180}}},
    {"half an hour of saving, in the south", {630, 30, {10, 1, 0, 120}, {4, 1, 0, 120}}},
    {"southern summers", {600, 60, {10, 1, 0, 120}, {4, 1, 0, 180}}},
    {"on at midnight, back at midnight, in the south", {-240, 60, {9, 1, 0, 0}, {4, 1, 0, 0}}},
    {"on at midnight, back at midnight", {120, 60, {3, 5, 0, 0}, {10, 5, 0, 0}}},
    {"on at midnight, back at one", {-300, 60, {3, 2, 0, 0}, {11, 1, 0, 60}}},
    {"on an hour before midnight", {-120, 60, {3, 5, 6, 1380}, {10, 5, 0, 0}}},
    {"two hours of saving", {0, 120, {3, 5, 0, 60}, {10, 5, 0, 180}}},
    {"far ahead of UTC", {765, 60, {9, 5, 0, 165}, {4, 1, 0, 225}}},
};

TEST(SchedulesInZones, RunAtTheirTimeOnTheWallOnce) {
    for (const Zone& row : zones) {
        test::TestZone zone(row.rules);
        const WallModel model(zone);
        for (const int minute : {0, 15, 30, 60, 90, 135, 150, 200, 540, 1410, 1439}) {
            for (const Plan& plan : {Plan{-1, -1, minute}, Plan{0, -1, minute}, Plan{1, -1, minute},
                                     Plan{6, -1, minute}, Plan{-1, 1, minute}, Plan{-1, 15, minute},
                                     Plan{-1, 31, minute}}) {
                SCOPED_TRACE(testing::Message() << row.name << ", " << plan.weekday << ' '
                                                << plan.monthday << ' ' << minute);
                const auto helper = plan.helper(zone);
                int64_t former = secondsTo(firstDay - days(1));
                for (sys_days date = firstDay; date < lastDay; date += days(1)) {
                    if (!plan.has(date)) {
                        continue;
                    }
                    const int64_t due = model.instantOf(secondsTo(date) + int64_t{60} * minute);
                    for (const int64_t now : {former, (former + due) / 2, due - 1}) {
                        zone.time = now;
                        const int64_t next = helper->TimeOfNextScheduleImpl(0);
                        if (former >= secondsTo(firstDay)) {
                            ASSERT_EQ(zone.text(next), zone.text(due)) << zone.text(now);
                        }
                    }
                    former = due;
                }
            }
        }
    }
}

}  // namespace
}  // namespace dorvo

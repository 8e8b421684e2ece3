#include "scheduler/schedulehelper.h"

#include <algorithm>

#include "scheduler/schedulecalendar.h"

namespace dorvo {
namespace {

// More than a change of the clocks moves a midnight by, less than a day.
constexpr int64_t halfDay = 43'200;
constexpr int64_t dayLength = 86'400;

// The due time `sum` seconds after the midnight with which a period begins, by the clock on the
// wall: what the zone's offset changes by on the way is taken off. The period's start need not
// show midnight: where the clocks are set on at midnight there is none that day.
int64_t dueOnWall(const ScheduleClock& clock, int64_t start, int64_t sum) {
    const std::optional<int64_t> wall = wallTime(clock, start);
    if (!wall) {
        return -1;
    }
    const int64_t midnight = (*wall + halfDay) / dayLength * dayLength;
    return instantOnWall(clock, midnight + sum, start + sum);
}

}  // namespace

int64_t ScheduleHelper::TimeOfNextScheduleImpl(int64_t after) const {
    const int64_t now = clock().now();
    if (now == -1 || periodStart(now) == -1) {
        return -1;
    }
    const int64_t current = periodStart(std::max({now, after, startTime()}));
    if (current == -1) {
        return -1;
    }
    // The former period's due time may have been moved into this one, the next one's may be needed.
    int64_t at = current - halfDay;
    int64_t start = periodStart(at);
    int64_t slot = dueInPeriod(at);
    int64_t due = -1;
    while (start != -1 && slot != -1) {
        due = dueOnWall(clock(), start, slot - start);
        if (due == -1 || (due > now && due > after && due >= startTime())) {
            break;
        }
        // The sum of the lengths misses the next midnight when the clocks change on the way to it.
        const int64_t sum = start + period(at);
        const int64_t nextSlot = dueInNextPeriod(at);
        at = sum + halfDay;
        start = periodStart(at);
        slot = nextSlot == -1 ? -1 : nextSlot + (start - sum);
        due = -1;
    }
    std::tm parts{};
    if (due != -1 && clock().local(due, parts)) {
        clock().chosen(parts);
    }
    return due;
}

int64_t ScheduleHelper::secondsUntilNext() const {
    const int64_t now = clock().now();
    const int64_t next = TimeOfNextScheduleImpl(0);
    return now == -1 || next == -1 ? -1 : std::max<int64_t>(next - now, 0);
}

int64_t ScheduleHelper::dueInNextPeriod(int64_t at) const {
    const int64_t due = dueInPeriod(at);
    return due == -1 ? -1 : due + period(at);
}

}  // namespace dorvo

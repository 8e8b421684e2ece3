#include "scheduler/schedulehelper.h"

#include <algorithm>

#include "scheduler/schedulecalendar.h"

namespace dorvo {
namespace {

constexpr int64_t minuteLength = 60;
constexpr int64_t hourLength = 60 * minuteLength;
constexpr int64_t dayLength = 24 * hourLength;
constexpr int64_t weekLength = 7 * dayLength;
constexpr int64_t halfDay = dayLength / 2;  // more than a change of the clocks moves a midnight by
constexpr int firstYear = 1900;             // of std::tm

// So many days and so long after the midnight with which a period begins; -1 for none.
int64_t dueAfter(int64_t start, int64_t days, int hour, int minute, int second) {
    return start == -1
               ? -1
               : start + days * dayLength + hour * hourLength + minute * minuteLength + second;
}

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

DailyScheduleHelper::DailyScheduleHelper(const ScheduleClock& clock, uint64_t start, int hour,
                                         int minute, int second)
    : ScheduleHelper(clock),
      hour_(hour),
      minute_(minute),
      second_(second),
      startTime_(standardInstant(clock, start)) {}

std::unique_ptr<ScheduleHelper> DailyScheduleHelper::clone() const {
    return std::make_unique<DailyScheduleHelper>(*this);
}

int64_t DailyScheduleHelper::period(int64_t) const {
    return dayLength;
}

int64_t DailyScheduleHelper::periodStart(int64_t at) const {
    std::tm parts{};
    return clock().local(at, parts) ? midnight(clock(), parts) : -1;
}

int64_t DailyScheduleHelper::dueInPeriod(int64_t at) const {
    return dueAfter(periodStart(at), 0, hour_, minute_, second_);
}

WeeklyScheduleHelper::WeeklyScheduleHelper(const ScheduleClock& clock, uint64_t start,
                                           int dayOfWeek, int hour, int minute, int second)
    : ScheduleHelper(clock),
      dayOfWeek_(dayOfWeek),
      hour_(hour),
      minute_(minute),
      second_(second),
      startTime_(standardInstant(clock, start)) {}

std::unique_ptr<ScheduleHelper> WeeklyScheduleHelper::clone() const {
    return std::make_unique<WeeklyScheduleHelper>(*this);
}

int64_t WeeklyScheduleHelper::period(int64_t) const {
    return weekLength;
}

int64_t WeeklyScheduleHelper::periodStart(int64_t at) const {
    std::tm parts{};
    if (!clock().local(at, parts)) {
        return -1;
    }
    // Days of the calendar: days of 86400 seconds miss Sunday in the first hour of a day when
    // daylight-saving time has begun in between.
    parts.tm_mday -= parts.tm_wday;
    return midnight(clock(), parts);
}

int64_t WeeklyScheduleHelper::dueInPeriod(int64_t at) const {
    return dueAfter(periodStart(at), dayOfWeek_, hour_, minute_, second_);
}

MonthlyScheduleHelper::MonthlyScheduleHelper(const ScheduleClock& clock, uint64_t start,
                                             int dayOfMonth, int hour, int minute, int second)
    : ScheduleHelper(clock),
      dayOfMonth_(dayOfMonth),
      hour_(hour),
      minute_(minute),
      second_(second),
      startTime_(standardInstant(clock, start)) {}

std::unique_ptr<ScheduleHelper> MonthlyScheduleHelper::clone() const {
    return std::make_unique<MonthlyScheduleHelper>(*this);
}

int64_t MonthlyScheduleHelper::period(int64_t at) const {
    std::tm parts{};
    const int days = clock().local(at, parts)
                         ? daysOfMonth(clock(), parts.tm_year + firstYear, parts.tm_mon)
                         : -1;
    return days * dayLength;
}

int64_t MonthlyScheduleHelper::periodStart(int64_t at) const {
    std::tm parts{};
    if (!clock().local(at, parts)) {
        return -1;
    }
    parts.tm_mday = 1;
    return midnight(clock(), parts);
}

int64_t MonthlyScheduleHelper::dueInPeriod(int64_t at) const {
    std::tm parts{};
    return clock().local(at, parts)
               ? dueIn(periodStart(at),
                       daysOfMonth(clock(), parts.tm_year + firstYear, parts.tm_mon))
               : -1;
}

int64_t MonthlyScheduleHelper::dueInNextPeriod(int64_t at) const {
    std::tm parts{};
    const int64_t start = periodStart(at);
    const int64_t length = period(at);
    if (start == -1 || length < 0 || !clock().local(at, parts)) {
        return -1;
    }
    const bool december = parts.tm_mon == 11;
    return dueIn(start + length,
                 daysOfMonth(clock(), parts.tm_year + firstYear + (december ? 1 : 0),
                             december ? 0 : parts.tm_mon + 1));
}

int64_t MonthlyScheduleHelper::dueIn(int64_t monthStart, int days) const {
    return days == -1
               ? -1
               : dueAfter(monthStart, std::min(dayOfMonth_, days) - 1, hour_, minute_, second_);
}

}  // namespace dorvo

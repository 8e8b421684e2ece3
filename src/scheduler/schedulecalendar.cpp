#include "scheduler/schedulecalendar.h"

#include <algorithm>
#include <chrono>

namespace dorvo {
namespace {

using std::chrono::days;
using std::chrono::hours;
using std::chrono::minutes;
using std::chrono::seconds;

constexpr uint64_t countsPerSecond = 10'000'000;
constexpr uint64_t secondsTo1970 = 11'644'473'600;  // from 1601
constexpr int firstYear = 1900;                     // of std::tm
constexpr int64_t tenHours = 36'000;
constexpr int64_t dayLength = 86'400;

// Seconds since 1970 of a count; nothing for one that is no time.
std::optional<int64_t> secondsOf(uint64_t count) {
    return count > INT64_MAX
               ? std::nullopt
               : std::optional(static_cast<int64_t>(count / countsPerSecond - secondsTo1970));
}

}  // namespace

int64_t standardInstant(const ScheduleClock& clock, uint64_t count) {
    const std::optional<int64_t> passed = secondsOf(count);
    if (!passed) {
        return -1;
    }
    const std::chrono::sys_seconds time{seconds(*passed)};
    const auto day = std::chrono::floor<days>(time);
    const std::chrono::year_month_day date(day);
    const std::chrono::hh_mm_ss clockTime(time - day);
    std::tm parts{};
    parts.tm_year = static_cast<int>(date.year()) - firstYear;
    parts.tm_mon = static_cast<int>(static_cast<unsigned>(date.month())) - 1;
    parts.tm_mday = static_cast<int>(static_cast<unsigned>(date.day()));
    parts.tm_hour = static_cast<int>(clockTime.hours().count());
    parts.tm_min = static_cast<int>(clockTime.minutes().count());
    parts.tm_sec = static_cast<int>(clockTime.seconds().count());
    parts.tm_isdst = 0;
    return clock.instant(parts);
}

uint64_t localCount(const ScheduleClock& clock, int64_t instant) {
    const std::optional<int64_t> wall = wallTime(clock, instant);
    return wall ? (static_cast<uint64_t>(*wall) + secondsTo1970) * countsPerSecond : 0;
}

uint64_t standardCount(const ScheduleClock& clock, uint64_t count) {
    const int64_t standard = standardInstant(clock, count);
    const int64_t instant = standard == -1 ? -1 : instantOnWall(clock, *secondsOf(count), standard);
    return instant == -1 ? count
                         : count - static_cast<uint64_t>(standard - instant) * countsPerSecond;
}

std::optional<int64_t> wallTime(const ScheduleClock& clock, int64_t instant) {
    std::tm parts{};
    if (!clock.local(instant, parts)) {
        return std::nullopt;
    }
    const auto month = static_cast<unsigned>(parts.tm_mon + 1);
    const std::chrono::sys_days day = std::chrono::year(parts.tm_year + firstYear) /
                                      std::chrono::month(month) /
                                      std::chrono::day(static_cast<unsigned>(parts.tm_mday));
    const seconds passed = day.time_since_epoch() + hours(parts.tm_hour) + minutes(parts.tm_min) +
                           seconds(parts.tm_sec);
    return passed.count();
}

int64_t instantOnWall(const ScheduleClock& clock, int64_t wall, int64_t nearby) {
    // The clocks change at most once in two days, so one of these two tells the time that day.
    const std::optional<int64_t> dayBefore = wallTime(clock, nearby - dayLength);
    const std::optional<int64_t> dayAfter = wallTime(clock, nearby + dayLength);
    if (!dayBefore || !dayAfter) {
        return -1;
    }
    const int64_t before = *dayBefore - (nearby - dayLength);  // ahead of UTC
    const int64_t after = *dayAfter - (nearby + dayLength);
    const int64_t first = wall - std::max(before, after);
    return wallTime(clock, first) == wall ? first : wall - std::min(before, after);
}

int64_t midnight(const ScheduleClock& clock, std::tm date) {
    date.tm_hour = 0;
    date.tm_min = 0;
    date.tm_sec = 0;
    // Asked again: the hour of the time that the date comes from may be of the other season.
    date.tm_isdst = -1;
    return clock.instant(date);
}

int daysOfMonth(const ScheduleClock& clock, int year, int month) {
    if (year < firstYear || month < 0 || month > 11) {
        return -1;
    }
    std::tm next{};
    next.tm_year = year - firstYear + (month == 11 ? 1 : 0);
    next.tm_mon = month == 11 ? 0 : month + 1;
    next.tm_mday = 1;
    const int64_t end = midnight(clock, next);
    std::tm last{};
    return end != -1 && clock.local(end - tenHours, last) ? last.tm_mday : -1;
}

}  // namespace dorvo

// Dates and times of schedules: FILETIME counts, months, midnights.
//
// Local counts are FILETIMEs of local time: 100-nanosecond units since 1601-01-01.
#pragma once

#include <cstdint>
#include <ctime>
#include <optional>

#include "scheduler/scheduleclock.h"

namespace dorvo {

// The instant of a local count taken for standard time, whatever the season; -1 for a count that
// has none, such as 0.
int64_t standardInstant(const ScheduleClock& clock, uint64_t count);

// The local count of an instant; 0 when it has none.
uint64_t localCount(const ScheduleClock& clock, int64_t instant);

// The count that standardInstant() takes for the instant at which the clock on the wall shows
// `count`: an hour less in summer. A count without an instant comes back as it is.
uint64_t standardCount(const ScheduleClock& clock, uint64_t count);

// What the clock on the wall shows at an instant, in seconds since 1970; nothing for an error.
std::optional<int64_t> wallTime(const ScheduleClock& clock, int64_t instant);

// The first instant at which the clock on the wall shows `wall`, -1 for an error. A time that is
// left out when the clocks are set on comes as much later as they are set on. `nearby` lies within
// half a day of the result.
int64_t instantOnWall(const ScheduleClock& clock, int64_t wall, int64_t nearby);

// The instant at which the date begins by the rules of the zone; -1 for an error.
int64_t midnight(const ScheduleClock& clock, std::tm date);

// How many days a month (0 to 11) has; -1 for a year before 1900, another month, an error.
int daysOfMonth(const ScheduleClock& clock, int year, int month);

}  // namespace dorvo

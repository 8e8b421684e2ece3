// Dates and times of schedules: FILETIME counts, months, midnights.
//
// Local counts are FILETIMEs of local time: 100-nanosecond units since 1601-01-01.
#pragma once

#include <cstdint>
#include <ctime>

#include "scheduler/scheduleclock.h"

namespace dorvo {

// The instant of a local count taken for standard time, whatever the season; -1 for a count that
// has none, such as 0.
int64_t standardInstant(const ScheduleClock& clock, uint64_t count);

// The local count of an instant; 0 when it has none.
uint64_t localCount(const ScheduleClock& clock, int64_t instant);

// The instant at which the date begins by the rules of the zone; -1 for an error.
int64_t midnight(const ScheduleClock& clock, std::tm date);

// How many days a month (0 to 11) has; -1 for a year before 1900, another month, an error.
int daysOfMonth(const ScheduleClock& clock, int year, int month);

}  // namespace dorvo

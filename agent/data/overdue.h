// Whether a job keeps what its schedule promises. Pure.
#pragma once

#include <cstdint>
#include <optional>

#include "jobdef/jobschedule.h"
#include "scheduler/scheduleclock.h"

namespace dorvo::agent {

// True when the first due time after the last completion has passed, and the one after it too: one
// missed run may still be under way or be made up for. Completions are seconds since 1970; a job
// that has never completed, or only by a clock that was then set back by a day or more, counts from
// its schedule's start. False for what never starts by itself.
bool isOverdue(const JobSchedule& schedule, std::optional<int64_t> completed,
               const ScheduleClock& clock);

// When the schedule is due next, in seconds since 1970; -1 for never.
int64_t nextDue(const JobSchedule& schedule, const ScheduleClock& clock);

}  // namespace dorvo::agent

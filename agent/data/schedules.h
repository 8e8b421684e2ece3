// A job's schedule, in words and against the clock. Pure.
//
// Instants are seconds since 1970.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include "jobdef/jobschedule.h"
#include "json_spirit/json_spirit.h"
#include "scheduler/scheduleclock.h"

namespace dorvo::agent {

// By JobSchedule::day.
constexpr std::array<const char*, 7> weekdays = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                                 "Thursday", "Friday", "Saturday"};

// "every day at 02:00", "every Monday at 02:00", "every month on day 31 at 02:00", "once", "by
// hand".
std::string scheduleText(const JobSchedule& schedule);

// {"kind", "day", "time"}: what the kind does not have is left out.
json_spirit::Ordered_object scheduleJson(const JobSchedule& schedule);

// True when the first due time after the last completion has passed, and the one after it too: one
// missed run may still be under way or be made up for. Completions are seconds since 1970; a job
// that has never completed, or only by a clock that was then set back by a day or more, counts from
// its schedule's start. False for what never starts by itself.
bool isOverdue(const JobSchedule& schedule, std::optional<int64_t> completed,
               const ScheduleClock& clock);

// When the schedule is due next, in seconds since 1970; -1 for never.
int64_t nextDue(const JobSchedule& schedule, const ScheduleClock& clock);

}  // namespace dorvo::agent

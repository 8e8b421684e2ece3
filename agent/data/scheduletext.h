// A schedule as people and scripts read it. Pure.
#pragma once

#include <array>
#include <string>

#include "jobdef/jobschedule.h"
#include "json_spirit/json_spirit.h"

namespace dorvo::agent {

// By JobSchedule::day.
constexpr std::array<const char*, 7> weekdays = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                                 "Thursday", "Friday", "Saturday"};

// "every day at 02:00", "every Monday at 02:00", "every month on day 31 at 02:00", "once", "by
// hand".
std::string scheduleText(const JobSchedule& schedule);

// {"kind", "day", "time"}: what the kind does not have is left out.
json_spirit::Ordered_object scheduleJson(const JobSchedule& schedule);

}  // namespace dorvo::agent

// The computer's clock and time zone, by way of the C runtime.
#pragma once

#include "base/api.h"
#include "scheduler/scheduleclock.h"

namespace dorvo {

// The one clock of the process. Making it takes the variable TZ out of the process's environment:
// the C runtime would believe it, while timers are compared with GetLocalTime, which does not.
DORVO_JOB_API const ScheduleClock& systemScheduleClock();

}  // namespace dorvo

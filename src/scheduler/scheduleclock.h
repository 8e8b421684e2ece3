// The time and the rules of the time zone, as schedules see them.
//
// Instants are seconds since 1970, -1 for an error. The arithmetic of schedules gets everything it
// knows of the world from here. Implementations may be asked from any thread.
#pragma once

#include <cstdint>
#include <ctime>

#include "base/api.h"

namespace dorvo {

class ScheduleClock {
public:
    ScheduleClock() = default;
    virtual ~ScheduleClock() = default;
    ScheduleClock(const ScheduleClock&) = delete;
    ScheduleClock& operator=(const ScheduleClock&) = delete;

    virtual int64_t now() const = 0;
    // The local date and time of an instant; false when it has none.
    virtual bool local(int64_t instant, std::tm& parts) const = 0;
    // The instant of a local date and time. Members out of their range carry over. `tm_isdst`: 0
    // takes the time for standard time, 1 for daylight-saving time, -1 for what the rules say.
    virtual int64_t instant(std::tm parts) const = 0;
    // Hears of each due time that a helper has chosen, for the log.
    virtual void chosen(const std::tm&) const {}
};

// The computer's clock and time zone, by way of the C runtime: the one clock of the process. Making
// it takes the variable TZ out of the process's environment: the C runtime would believe it, while
// timers are compared with GetLocalTime, which does not.
DORVO_JOB_API const ScheduleClock& systemScheduleClock();

}  // namespace dorvo

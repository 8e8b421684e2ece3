// A time as the web storage service gets it: "2026-01-02 03:04:05", in the zone of the value. Empty
// for 0 and for what is outside the calendar.
#pragma once

#include <cstdint>
#include <string>

#include "base/api.h"

namespace dorvo {

DORVO_JOB_API std::string wire_time(uint64_t ticks);

}  // namespace dorvo

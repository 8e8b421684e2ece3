// When a job starts by itself.
#pragma once

#include <cstdint>

#include "jobdef/export.h"

namespace dorvo {

enum class ScheduleKind : int32_t {
    once = 1,     // when it is submitted
    daily = 2,    // at hour:minute:second
    weekly = 3,   // on `day`, 0 Sunday to 6 Saturday
    monthly = 4,  // on `day`, 1 to 31; the last day in shorter months
    manual = 5,   // never
};

struct JobSchedule {
    ScheduleKind kind = ScheduleKind::manual;
    uint64_t start = 0;  // FILETIME, local: not before this
    int32_t day = 0;
    int32_t hour = 0;
    int32_t minute = 0;
    int32_t second = 0;

    bool operator==(const JobSchedule&) const = default;

    // A known kind, and each field within the range that the kind gives it.
    DORVO_JOBDEF_API bool isValid() const;
};

}  // namespace dorvo

#include "jobdef/jobschedule.h"

namespace dorvo {

bool JobSchedule::isValid() const {
    const auto within = [](int32_t value, int32_t low, int32_t high) {
        return value >= low && value <= high;
    };
    if (!within(hour, 0, 23) || !within(minute, 0, 59) || !within(second, 0, 59)) {
        return false;
    }
    switch (kind) {
        case ScheduleKind::once: return start != 0;
        case ScheduleKind::weekly: return within(day, 0, 6);
        case ScheduleKind::monthly: return within(day, 1, 31);
        case ScheduleKind::daily:
        case ScheduleKind::manual: return true;
    }
    return false;
}

}  // namespace dorvo

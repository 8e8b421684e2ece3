#include "scheduler/schedulehelper.h"

#include <algorithm>

namespace dorvo {
namespace {

// More than daylight-saving time moves a midnight by, less than a day.
constexpr int64_t halfDay = 43'200;

}  // namespace

int64_t ScheduleHelper::TimeOfNextScheduleImpl(int64_t after) const {
    const int64_t now = clock().now();
    if (now == -1 || periodStart(now) == -1) {
        return -1;
    }
    const int64_t base = std::max({now, after, startTime()});
    const int64_t current = periodStart(base);
    if (current == -1) {
        return -1;
    }
    // The former period's due time may have been moved into this one, the next one's may be needed.
    int64_t at = current - halfDay;
    int64_t due = dueInPeriod(at);
    while (due != -1 && (due <= now || due <= after || due < startTime())) {
        // The sum of the lengths misses the next midnight when daylight-saving time begins or ends
        // on the way to it; what it misses it by is taken from the due time too.
        const int64_t sum = periodStart(at) + period(at);
        const int64_t next = periodStart(sum + halfDay);
        const int64_t nextDue = dueInNextPeriod(at);
        if (next == -1 || nextDue == -1 || nextDue <= due) {
            return -1;
        }
        due = nextDue + (next - sum);
        at = sum + halfDay;
    }
    std::tm parts{};
    if (due != -1 && clock().local(due, parts)) {
        clock().chosen(parts);
    }
    return due;
}

int64_t ScheduleHelper::secondsUntilNext() const {
    const int64_t now = clock().now();
    const int64_t next = TimeOfNextScheduleImpl(0);
    return now == -1 || next == -1 ? -1 : std::max<int64_t>(next - now, 0);
}

int64_t ScheduleHelper::dueInNextPeriod(int64_t at) const {
    const int64_t due = dueInPeriod(at);
    return due == -1 ? -1 : due + period(at);
}

}  // namespace dorvo

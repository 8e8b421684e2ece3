#include "scheduler/dailyschedulehelper.h"

#include "scheduler/schedulecalendar.h"

namespace dorvo {
namespace {

constexpr int64_t minuteLength = 60;
constexpr int64_t hourLength = 60 * minuteLength;
constexpr int64_t dayLength = 24 * hourLength;

}  // namespace

DailyScheduleHelper::DailyScheduleHelper(const ScheduleClock& clock, uint64_t start, int hour,
                                         int minute, int second)
    : ScheduleHelper(clock),
      hour_(hour),
      minute_(minute),
      second_(second),
      startTime_(standardInstant(clock, start)) {}

std::unique_ptr<ScheduleHelper> DailyScheduleHelper::clone() const {
    return std::make_unique<DailyScheduleHelper>(*this);
}

int64_t DailyScheduleHelper::period(int64_t) const {
    return dayLength;
}

int64_t DailyScheduleHelper::periodStart(int64_t at) const {
    std::tm parts{};
    return clock().local(at, parts) ? midnight(clock(), parts) : -1;
}

int64_t DailyScheduleHelper::dueInPeriod(int64_t at) const {
    const int64_t start = periodStart(at);
    return start == -1 ? -1 : start + hour_ * hourLength + minute_ * minuteLength + second_;
}

}  // namespace dorvo

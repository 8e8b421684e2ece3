#include "scheduler/weeklyschedulehelper.h"

#include "scheduler/schedulecalendar.h"

namespace dorvo {
namespace {

constexpr int64_t minuteLength = 60;
constexpr int64_t hourLength = 60 * minuteLength;
constexpr int64_t dayLength = 24 * hourLength;
constexpr int64_t week = 7 * dayLength;

}  // namespace

WeeklyScheduleHelper::WeeklyScheduleHelper(const ScheduleClock& clock, uint64_t start,
                                           int dayOfWeek, int hour, int minute, int second)
    : ScheduleHelper(clock),
      dayOfWeek_(dayOfWeek),
      hour_(hour),
      minute_(minute),
      second_(second),
      startTime_(standardInstant(clock, start)) {}

std::unique_ptr<ScheduleHelper> WeeklyScheduleHelper::clone() const {
    return std::make_unique<WeeklyScheduleHelper>(*this);
}

int64_t WeeklyScheduleHelper::period(int64_t) const {
    return week;
}

int64_t WeeklyScheduleHelper::periodStart(int64_t at) const {
    std::tm parts{};
    if (!clock().local(at, parts)) {
        return -1;
    }
    // Days of the calendar: days of 86400 seconds miss Sunday in the first hour of a day when
    // daylight-saving time has begun in between.
    parts.tm_mday -= parts.tm_wday;
    return midnight(clock(), parts);
}

int64_t WeeklyScheduleHelper::dueInPeriod(int64_t at) const {
    const int64_t start = periodStart(at);
    return start == -1 ? -1
                       : start + dayOfWeek_ * dayLength + hour_ * hourLength +
                             minute_ * minuteLength + second_;
}

}  // namespace dorvo

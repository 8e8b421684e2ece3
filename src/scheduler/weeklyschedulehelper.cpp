#include "scheduler/weeklyschedulehelper.h"

#include "scheduler/schedulecalendar.h"

namespace dorvo {
namespace {

constexpr int64_t week = 604'800;

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
    return start == -1 ? -1 : start + ((dayOfWeek_ * 24 + hour_) * 60 + minute_) * 60 + second_;
}

}  // namespace dorvo

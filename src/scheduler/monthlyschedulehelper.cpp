#include "scheduler/monthlyschedulehelper.h"

#include <algorithm>

#include "scheduler/schedulecalendar.h"

namespace dorvo {
namespace {

constexpr int64_t day = 86'400;
constexpr int firstYear = 1900;  // of std::tm

}  // namespace

MonthlyScheduleHelper::MonthlyScheduleHelper(const ScheduleClock& clock, uint64_t start,
                                             int dayOfMonth, int hour, int minute, int second)
    : ScheduleHelper(clock),
      dayOfMonth_(dayOfMonth),
      hour_(hour),
      minute_(minute),
      second_(second),
      startTime_(standardInstant(clock, start)) {}

std::unique_ptr<ScheduleHelper> MonthlyScheduleHelper::clone() const {
    return std::make_unique<MonthlyScheduleHelper>(*this);
}

int64_t MonthlyScheduleHelper::period(int64_t at) const {
    std::tm parts{};
    const int days = clock().local(at, parts)
                         ? daysOfMonth(clock(), parts.tm_year + firstYear, parts.tm_mon)
                         : -1;
    return days * day;
}

int64_t MonthlyScheduleHelper::periodStart(int64_t at) const {
    std::tm parts{};
    if (!clock().local(at, parts)) {
        return -1;
    }
    parts.tm_mday = 1;
    return midnight(clock(), parts);
}

int64_t MonthlyScheduleHelper::dueInPeriod(int64_t at) const {
    std::tm parts{};
    return clock().local(at, parts)
               ? dueIn(periodStart(at),
                       daysOfMonth(clock(), parts.tm_year + firstYear, parts.tm_mon))
               : -1;
}

int64_t MonthlyScheduleHelper::dueInNextPeriod(int64_t at) const {
    std::tm parts{};
    const int64_t start = periodStart(at);
    const int64_t length = period(at);
    if (start == -1 || length < 0 || !clock().local(at, parts)) {
        return -1;
    }
    const bool december = parts.tm_mon == 11;
    return dueIn(start + length,
                 daysOfMonth(clock(), parts.tm_year + firstYear + (december ? 1 : 0),
                             december ? 0 : parts.tm_mon + 1));
}

int64_t MonthlyScheduleHelper::dueIn(int64_t monthStart, int days) const {
    if (monthStart == -1 || days == -1) {
        return -1;
    }
    const int64_t dayIndex = std::min(dayOfMonth_, days) - 1;
    return monthStart + ((dayIndex * 24 + hour_) * 60 + minute_) * 60 + second_;
}

}  // namespace dorvo

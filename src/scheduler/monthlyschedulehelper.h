// A schedule that is due on one day of every month.
#pragma once

#include "scheduler/schedulehelper.h"

namespace dorvo {

class MonthlyScheduleHelper : public ScheduleHelper {
public:
    // `start` is a local FILETIME, 0 for none; it is taken for standard time in summer too.
    // `dayOfMonth`: 1 to 31, the last day in months that are shorter.
    MonthlyScheduleHelper(const ScheduleClock& clock, uint64_t start, int dayOfMonth, int hour,
                          int minute, int second);

    std::unique_ptr<ScheduleHelper> clone() const override;
    int kind() const override { return 4; }
    int64_t period(int64_t at) const override;
    int64_t periodStart(int64_t at) const override;
    int64_t dueInPeriod(int64_t at) const override;
    int64_t dueInNextPeriod(int64_t at) const override;
    int64_t startTime() const override { return startTime_; }

private:
    int64_t dueIn(int64_t monthStart, int days) const;

    int32_t dayOfMonth_;
    int32_t hour_;
    int32_t minute_;
    int32_t second_;
    int64_t startTime_;
};

}  // namespace dorvo

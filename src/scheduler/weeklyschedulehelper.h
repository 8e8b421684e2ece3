// A schedule that is due on one day of every week.
#pragma once

#include "scheduler/schedulehelper.h"

namespace dorvo {

class WeeklyScheduleHelper : public ScheduleHelper {
public:
    // `start` is a local FILETIME, 0 for none; it is taken for standard time in summer too.
    // `dayOfWeek`: 0 Sunday to 6 Saturday.
    WeeklyScheduleHelper(const ScheduleClock& clock, uint64_t start, int dayOfWeek, int hour,
                         int minute, int second);

    std::unique_ptr<ScheduleHelper> clone() const override;
    int kind() const override { return 3; }
    int64_t period(int64_t at) const override;
    int64_t periodStart(int64_t at) const override;
    int64_t dueInPeriod(int64_t at) const override;
    int64_t startTime() const override { return startTime_; }

private:
    int32_t dayOfWeek_;
    int32_t hour_;
    int32_t minute_;
    int32_t second_;
    int64_t startTime_;
};

}  // namespace dorvo

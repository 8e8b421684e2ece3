// A schedule that is due every day.
#pragma once

#include "scheduler/schedulehelper.h"

namespace dorvo {

class DailyScheduleHelper : public ScheduleHelper {
public:
    // `start` is a local FILETIME, 0 for none; it is taken for standard time in summer too.
    DailyScheduleHelper(const ScheduleClock& clock, uint64_t start, int hour, int minute,
                        int second);

    std::unique_ptr<ScheduleHelper> clone() const override;
    int kind() const override { return 2; }
    int64_t period(int64_t at) const override;
    int64_t periodStart(int64_t at) const override;
    int64_t dueInPeriod(int64_t at) const override;
    int64_t startTime() const override { return startTime_; }

private:
    int32_t hour_;
    int32_t minute_;
    int32_t second_;
    int64_t startTime_;
};

}  // namespace dorvo

// When a schedule is next due.
//
// A schedule has a due time in each of its periods (a day, a week, a month). The period's own
// figures count so many seconds from the midnight with which it begins, which is off the time on
// the wall once the clocks have changed since; the next due time is corrected by that change
// (docs/schedules.md). Instants are seconds since 1970, -1 for an error of the clock. Helpers do
// not change; the clock is borrowed and outlives them.
#pragma once

#include <cstdint>
#include <memory>

#include "scheduler/scheduleclock.h"

namespace dorvo {

class ScheduleHelper {
public:
    virtual ~ScheduleHelper() = default;
    virtual std::unique_ptr<ScheduleHelper> clone() const = 0;
    // 2 daily, 3 weekly, 4 monthly.
    virtual int kind() const = 0;
    // The first due time on the wall that is later than now and than `after` (0 for no such limit),
    // and not before the schedule's start.
    virtual int64_t TimeOfNextScheduleImpl(int64_t after) const;
    // From now, 0 when the next due time is not later.
    virtual int64_t secondsUntilNext() const;

    // Of the period in which the instant `at` lies: its length in seconds, its first midnight, and
    // the due times in it and in the period that follows, as if the clocks never changed.
    virtual int64_t period(int64_t at) const = 0;
    virtual int64_t periodStart(int64_t at) const = 0;
    virtual int64_t dueInPeriod(int64_t at) const = 0;
    virtual int64_t dueInNextPeriod(int64_t at) const;

    // The schedule is not due before; -1 for a schedule without a start.
    virtual int64_t startTime() const = 0;

protected:
    explicit ScheduleHelper(const ScheduleClock& clock) : clock_(&clock) {}
    ScheduleHelper(const ScheduleHelper&) = default;
    ScheduleHelper& operator=(const ScheduleHelper&) = default;

    const ScheduleClock& clock() const { return *clock_; }

private:
    const ScheduleClock* clock_;
};

// A schedule that is due every day.
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

// A schedule that is due on one day of every week.
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

// A schedule that is due on one day of every month.
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

#include "job/jobplanner.h"

#include <utility>

#include "base/job_state.h"
#include "base/log.h"
#include "job/jobcmdqueue.h"
#include "scheduler/schedulecalendar.h"
#include "scheduler/scheduleclock.h"
#include "scheduler/schedulehelper.h"

namespace dorvo {
namespace {

// A due time that lies further ahead was started by a clock that was wrong.
constexpr int64_t day = 86'400;

// Nobody but the user takes up what the user has paused. A run that ended before it saw the pause
// leaves the flag alone behind.
bool pausedByUser(const JobActivity& record) {
    return static_cast<JobState>(record.state) == JobState::paused && record.pausedManually != 0;
}

}  // namespace

ScheduleManagerImpl& jobSchedules() {
    static std::once_flag once;
    ScheduleManagerImpl& schedules =
        *ATL::CComSingleton<ScheduleManagerImpl, ATL::CComAutoCriticalSection>::instance();
    std::call_once(once, [&] {
        schedules.commands([](const std::string& id, const char* command) {
            JobCmdQueue::instance()->add(id, command);
        });
    });
    return schedules;
}

std::unique_ptr<ScheduleHelper> makeScheduleHelper(const JobSchedule& schedule,
                                                   const ScheduleClock& clock) {
    const JobSchedule& s = schedule;
    // A definition tells its start by the clock on the wall, a helper takes it for standard time.
    const uint64_t start = standardCount(clock, s.start);
    switch (s.kind) {
        case ScheduleKind::daily:
            return std::make_unique<DailyScheduleHelper>(clock, start, s.hour, s.minute, s.second);
        case ScheduleKind::weekly:
            return std::make_unique<WeeklyScheduleHelper>(clock, start, s.day, s.hour, s.minute,
                                                          s.second);
        case ScheduleKind::monthly:
            return std::make_unique<MonthlyScheduleHelper>(clock, start, s.day, s.hour, s.minute,
                                                           s.second);
        case ScheduleKind::once:
        case ScheduleKind::manual: break;
    }
    return nullptr;
}

JobPlanner::JobPlanner(std::string jobId, ScheduleManagerImpl* schedules,
                       const ScheduleClock* clock)
    : jobId_(std::move(jobId)),
      schedules_(schedules == nullptr ? jobSchedules() : *schedules),
      clock_(clock == nullptr ? systemScheduleClock() : *clock) {}

bool JobPlanner::isDueNow(PlanReason reason, const BackupJobDefinition& definition,
                          const JobActivity& record, uint64_t now) {
    if (record.nextRunTime == 0 || record.nextRunTime > now) {
        return false;
    }
    switch (reason) {
        case PlanReason::asked: return true;
        case PlanReason::loaded: return definition.runMissed() && !pausedByUser(record);
        case PlanReason::started:
        case PlanReason::refused:
        case PlanReason::ended: break;
    }
    return false;
}

bool JobPlanner::plan(PlanReason reason, const BackupJobDefinition& definition,
                      JobActivityHandle& activity) {
    const std::lock_guard guard(lock_);
    if (stopped_) {
        return false;
    }
    const std::unique_ptr<ScheduleHelper> helper =
        makeScheduleHelper(definition.schedule(), clock_);
    if (!helper) {
        unschedule();
        activity->nextRunTime = 0;
        return true;
    }
    const int64_t now = clock_.now();
    const uint64_t localNow = localCount(clock_, now);
    if (isDueNow(reason, definition, *activity.get(), localNow)) {
        planned_ = now;
        return schedules_.Schedule(now, jobId_);
    }
    if (planned_ != 0 && localNow != 0 && localCount(clock_, planned_) <= localNow) {
        started_ = planned_;
    }
    const int64_t next = helper->TimeOfNextScheduleImpl(started_ - now < day ? started_ : 0);
    if (localNow == 0 || next == -1) {
        return logFailed("Failed to find the next run of job {%s}.\n", jobId_);
    }
    planned_ = next;
    const bool due = activity->nextRunTime != 0 && activity->nextRunTime <= localNow;
    if (!due || reason != PlanReason::refused) {
        activity->nextRunTime = localCount(clock_, next);
        activity.sync();
    }
    return schedules_.Schedule(next, jobId_);
}

void JobPlanner::stop() {
    const std::lock_guard guard(lock_);
    unschedule();
    stopped_ = true;
}

void JobPlanner::unschedule() {
    if (std::exchange(planned_, 0) != 0) {
        schedules_.Unschedule(jobId_);
    }
}

}  // namespace dorvo

// Plans the runs of a scheduled backup job: keeps its one timer and the time of its next run on
// record.
//
// The time on record is the due time that is still to be started. One that has passed is due now,
// unless it passed while the machine was off and the definition does not make up for that. A due
// time is started once, also when the clock is then set back past it by less than a day.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "base/api.h"
#include "jobdef/backupjobdefinition.h"
#include "record/jobactivityhandle.h"
#include "scheduler/schedulehelper.h"
#include "scheduler/schedulemanager.h"

namespace dorvo {

// The schedules of the process, whose commands go into the command queue.
ScheduleManagerImpl& jobSchedules();

// Null for a schedule that plans nothing: by hand, or once, which starts when it is submitted.
DORVO_JOB_API std::unique_ptr<ScheduleHelper> makeScheduleHelper(const JobSchedule& schedule,
                                                                 const ScheduleClock& clock);

// Why a job is planned.
enum class PlanReason {
    loaded,   // it was loaded or submitted
    asked,    // by the command "do_schedule"
    started,  // it was started, or cannot be
    refused,  // nothing came of its start: what was due stays on record
    ended,    // a run has ended
};

class JobPlanner {
public:
    // What is null is that of the process; both are borrowed.
    JobPlanner(std::string jobId, ScheduleManagerImpl* schedules, const ScheduleClock* clock);

    // Any thread. False, logged, when nothing could be planned; what was planned before then stays.
    bool plan(PlanReason reason, const BackupJobDefinition& definition,
              JobActivityHandle& activity);
    // Takes the job off the schedule, for good. Idempotent.
    void stop();

private:
    void unschedule();
    // The due time to be started now.
    static bool isDueNow(PlanReason reason, const BackupJobDefinition& definition,
                         const JobActivity& record, uint64_t now);

    const std::string jobId_;
    ScheduleManagerImpl& schedules_;
    const ScheduleClock& clock_;
    std::mutex lock_;      // guards what follows and the record's next-run time
    int64_t planned_ = 0;  // what the timer is set to, 0 for none
    int64_t started_ = 0;  // the last due time that came, 0 for none
    bool stopped_ = false;
};

}  // namespace dorvo

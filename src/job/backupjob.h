// The job that backs up, by the definition's schedule or by hand. What its runs do, see
// BackupTransfer; the job has what outlives them: the schedule, the notes of runs at storages.
#pragma once

#include <memory>
#include <string>

#include "job/backuptransfer.h"
#include "job/job.h"
#include "job/jobplanner.h"
#include "job/pendingdrops.h"
#include "jobdef/backupjobdefinition.h"
#include "storage/backupstorage.h"

namespace dorvo {

class DORVO_JOB_API BackupJob : public Job {
public:
    struct Services : BackupServices {
        // Both borrowed; null for those of the process.
        ScheduleManagerImpl* schedules = nullptr;
        const ScheduleClock* clock = nullptr;
    };

    // The definition is that of a backup.
    explicit BackupJob(std::unique_ptr<JobDefinition> definition);
    BackupJob(std::unique_ptr<JobDefinition> definition, Services services);
    ~BackupJob() override;

    bool init() override;
    bool stop() override;
    bool pause(bool manual) override;

protected:
    unsigned long run() override;
    // "do_schedule": plans the next run, or has one started that fell due without a start.
    bool commandimpl(const char* text) override;
    void startAsked(bool refused) override;
    void stopAsked() override { snapshots_.tellEnd(); }
    void endLeft(JobState end) override;

    // Finishes the run under way, see Transfer::cleanup.
    virtual JobState cleanup(JobState endCode);
    // A new back end for the run, null with the last error when there can be none. Work thread.
    virtual std::unique_ptr<BackupStorage> createStorage(const StorageRun& run,
                                                         const SourceTotals& totals);
    // The run ends for good; its final state is about to be recorded. Work thread.
    virtual void runEnds();

private:
    const BackupJobDefinition& backup() const {
        return static_cast<const BackupJobDefinition&>(definition());
    }
    Services wholeOf(Services services);
    std::unique_ptr<BackupTransfer> makeTransfer();
    bool plan(PlanReason reason);
    bool noteLeft();

    const Services services_;  // whole
    JobPlanner planner_;
    const PendingDrops drops_;
    RunSnapshots snapshots_;
    // The work thread's:
    TransferMemory memory_;
    std::unique_ptr<BackupTransfer> run_;  // while there is one
};

}  // namespace dorvo

// The job that backs up: a run walks the definition's sources, from snapshots where the options say
// so, and hands everything that has changed to a storage back end.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "job/jobplanner.h"
#include "job/pendingdrops.h"
#include "job/transferjob.h"
#include "jobdef/backupjobdefinition.h"
#include "source/incrementcheck.h"
#include "source/jobvolume.h"
#include "storage/backupstorage.h"
#include "vssreq/vssrequester.h"

namespace dorvo {

class DORVO_JOB_API BackupJob : public TransferJob {
public:
    // What a run uses of the world around it, for tests to replace; an empty function stands for
    // the real thing. The factories are called on the work thread, once a run.
    struct Services {
        std::function<bool()> snapshotsEnabled;
        WaitForServer waitForServer;
        std::function<std::unique_ptr<VSSRequester>()> snapshots;
        DWORD snapshotRetryMs = 10'000;  // from one try at a busy snapshot service to the next
        // Null, with the last error, when there can be none.
        std::function<std::unique_ptr<IncrementCheck>()> incrementCheck;
        // Has the runs told that storages are to drop; does not wait for it.
        std::function<void()> tellDrops;
        // Both borrowed; null for those of the process.
        ScheduleManagerImpl* schedules = nullptr;
        const ScheduleClock* clock = nullptr;
    };

    // The definition is that of a backup.
    explicit BackupJob(std::unique_ptr<JobDefinition> definition);
    BackupJob(std::unique_ptr<JobDefinition> definition, Services services);
    ~BackupJob() override;

    bool init() override;

protected:
    unsigned long run() override;
    // "do_schedule": plans the next run, or has one started that fell due without a start.
    bool commandimpl(const char* text) override;
    void startAsked(bool refused) override;
    void runEnds() override;
    JobState cleanup(JobState endCode) override;

    // A new back end for the run, null with the last error when there can be none. Work thread.
    virtual std::unique_ptr<BackupStorage> createStorage(StorageUse use);

private:
    friend class BackupRun;
    friend class BackupItems;

    const BackupJobDefinition& backup() const {
        return static_cast<const BackupJobDefinition&>(definition());
    }
    const char* kind() const override { return "backup"; }
    void forgetRun() override { volumes_.clear(); }
    JobState transfer() override;
    void tidyUp(JobState endCode) override;
    void stopAsked() override;
    bool plan(PlanReason reason);
    bool openStorage() override;
    bool recordError(const wchar_t* path, DWORD code, const std::string& reason) override;
    bool completeAtStorage() override;
    bool dropAtStorage(JobState& endCode) override;
    bool isCompletedAtStorage(DWORD refusal);
    bool noteLeft();
    // Notes where the run is, before its storage hears of it. False with the last error:
    // errorOtherServer when the run has begun at another one than is set now.
    bool noteRun();
    // storage_, of the server that has the run. False with the last error, as of noteRun().
    bool makeStorage(StorageUse use);
    PendingDrop placeOfRun() const;
    void closeStorage() override { storage_.reset(); }
    FailureAction endAction(const Failure& failure, const EndFailures& failures) const override {
        return endFailure(failure, failures);
    }
    bool opensToEnd() const override { return true; }

    Services services_;
    JobPlanner planner_;
    const PendingDrops drops_;

    std::mutex snapshotLock_;                  // guards the pointer
    std::shared_ptr<VSSRequester> snapshots_;  // while they are being made or used

    // The work thread's.
    VolumeMap volumes_;
    std::unique_ptr<BackupStorage> storage_;
    std::string completed_;  // the run that its storage has completed
};

}  // namespace dorvo

// The job that backs up: a run walks the definition's sources, from snapshots where the options say
// so, and hands everything that has changed to a storage back end.
//
// A run that loses its network parks itself and resumes 30 seconds later at the item that failed.
// Items that cannot be stored are written down, and the run goes on. A run that a crash has cut off
// is taken up by init().
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "job/transferfailure.h"
#include "job/job.h"
#include "job/source/incrementcheck.h"
#include "job/source/jobvolume.h"
#include "jobdef/backupjobdefinition.h"
#include "storage/backupstorage.h"
#include "storage/faileditems.h"
#include "vssreq/vssrequester.h"

namespace dorvo {

class DORVO_JOB_API BackupJob : public Job {
public:
    // What a run uses of the world around it, for tests to replace; an empty function stands for
    // the real thing. The factories are called on the work thread, once a run.
    struct Services {
        std::function<bool()> snapshotsEnabled;
        std::function<bool()> waitForServer;
        std::function<std::unique_ptr<VSSRequester>()> snapshots;
        // Null sends everything.
        std::function<std::unique_ptr<IncrementCheck>()> incrementCheck;
    };

    // The definition is that of a backup.
    explicit BackupJob(std::unique_ptr<JobDefinition> definition);
    BackupJob(std::unique_ptr<JobDefinition> definition, Services services);
    ~BackupJob() override;

    bool init() override;
    // A paused run is cancelled at the storage, on a thread of the job.
    bool stop() override;
    bool pause(bool manual) override;

protected:
    unsigned long run() override;
    bool commandimpl(const char* text) override;

    // Finishes a run at the storage and on disk: 7 completes it there, 9 and 10 cancel it, 6 leaves
    // it as it is. Gives the state in which the run really ends: one that could not be completed
    // is paused, or has failed.
    virtual int cleanup(int endCode);
    // A new back end for the run, null with the last error when there can be none.
    virtual std::unique_ptr<BackupStorage> createStorage();
    // Of the run under way; for the storages that createStorage makes.
    FailedItems& failedItems() { return *failed_; }

private:
    friend class BackupRun;
    friend class BackupItems;

    const BackupJobDefinition& backup() const {
        return static_cast<const BackupJobDefinition&>(definition());
    }
    std::string idAndName() const;
    std::string instanceText() const;
    bool stopping() const;
    bool waitsForServer() const;
    Failure failureOf(unsigned long code);
    // Parks the run because of something that passes.
    void pauseForRetry(unsigned long code);
    void openFailedItems();
    void finish(int endCode);
    int endAtStorage();
    void cancelAtStorage();
    void logRetry(const char* verb, unsigned long code) const;
    void writeHistory(int endCode);
    bool requestStop();
    bool cancelPausedRun();

    Services services_;

    // Keeps commands of other threads apart from the end of a run: guards the change from a state
    // in which a run takes commands to its final one. Taken before the locks of the base.
    std::mutex stateLock_;
    std::atomic<bool> cancelOnly_{false};  // the next run only cancels at the storage

    std::mutex snapshotLock_;                  // guards the pointer
    std::shared_ptr<VSSRequester> snapshots_;  // while they are being made or used

    // What follows belongs to the work thread.
    VolumeMap volumes_;
    std::unique_ptr<FailedItems> failed_;
    std::unique_ptr<BackupStorage> storage_;
    SourceTotals totals_;
    bool atStorage_ = false;      // the storage may know of the run
    bool retry_ = false;          // the run ends because of something that passes
    bool errorNotified_ = false;  // observers know of runError_
    unsigned long runError_ = 0;  // why the run ends
};

}  // namespace dorvo

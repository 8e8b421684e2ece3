// A job that moves items between this machine and a storage back end: what a backup and a restore
// have in common.
//
// A run that loses its network, or has no room left on a disk, parks itself and resumes later at
// the item that failed: 30 seconds at first, minutes when it comes no further. Items that fail for
// good are written down, and the run goes on. A run that a crash has cut off is taken up by init().
// Commands come on any thread; what a run works with belongs to its thread.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "base/disk_room.h"
#include "job/job.h"
#include "job/resumebackoff.h"
#include "job/storagefactory.h"
#include "job/transferfailure.h"
#include "record/jobhistoryinfo.h"
#include "storage/faileditems.h"

namespace dorvo {

class DORVO_JOB_API TransferJob : public Job {
public:
    bool init() override;
    // A paused run is dropped at the storage, on a thread of the job.
    bool stop() override;
    bool pause(bool manual) override;

protected:
    // Whether a server that is not to be found may appear yet; an empty function asks the options.
    using WaitForServer = std::function<bool()>;

    TransferJob(std::unique_ptr<JobDefinition> definition, WaitForServer waitForServer);

    // The body of run(): one run from its first step to its end. Gives its error code.
    unsigned long carryOut();
    // Finishes a run at the storage and on disk: completes it there, drops one that was cancelled
    // or has failed, leaves a paused one as it is. Gives the state in which the run really ends:
    // one that could not be completed is paused, or has failed.
    virtual JobState cleanup(JobState endCode);

    // The run ends for good; its final state is about to be recorded. Work thread.
    virtual void runEnds() {}

    // What kind of run the history says it is.
    virtual const char* kind() const = 0;
    // Lets go of what a former run has left in memory.
    virtual void forgetRun() {}
    // The run up to the end of its list. Gives the end code: completed when the list is through,
    // else paused, cancelled or error, with the reason in runError_. May throw std::exception.
    virtual JobState transfer() = 0;
    // Takes away what the run keeps on disk for its next start, where the end code is final.
    virtual void tidyUp(JobState endCode) = 0;
    // A stop or a pause was asked for; for what neither looks at the stop event nor polls. Any
    // thread, under the lock that orders commands.
    virtual void stopAsked() {}

    // Bytes that still fit where the folder is; nothing when the system does not say.
    virtual std::optional<uint64_t> roomAt(const std::wstring& folder) const;
    // Whether both still fit, which may lie on one disk.
    virtual bool fits(const DiskNeed& one, const DiskNeed& other) const;

    // The run's storage. Each is false with the last error. Opening makes it; dropping makes it
    // where there is none yet.
    virtual bool openStorage() = 0;
    virtual bool recordError(const wchar_t* path, DWORD code, const std::string& reason) = 0;
    virtual bool completeAtStorage() = 0;
    // A run that turns out to be completed there ends as such, whatever the end code was.
    virtual bool dropAtStorage(JobState& endCode) = 0;
    virtual void closeStorage() = 0;
    // What a failure to complete the run means, the last of these.
    virtual FailureAction endAction(const Failure& failure, const EndFailures& failures) const = 0;
    // Whether a run that has nothing left but its end opens its storage before.
    virtual bool opensToEnd() const = 0;

    // Of the run under way; for the storages of the final classes.
    FailedItems& failedItems() { return *failed_; }
    StorageRun storageRun(StorageUse use);
    // The run's history document as it would be if the run ended now.
    const json_spirit::Object& historyAt(JobState endCode);
    std::string instanceText() const;
    // The end code of a run that leaves before its end: what the state says was asked, else 10.
    JobState brokenOffCode();

    // What follows belongs to the work thread.
    SourceTotals totals_;         // of the source list
    bool atStorage_ = false;      // the storage may know of the run, or has to
    unsigned long runError_ = 0;  // why the run ends

private:
    friend class TransferRun;
    friend class TransferItems;

    bool stopping() const;
    Failure failureOf(unsigned long code);
    // Parks the run because of something that passes.
    void pauseForRetry(unsigned long code);
    // Parks the run, to be resumed.
    void park();
    void openHistory();
    void closeHistory();
    void writeHistory(JobState endCode);
    void finish(JobState endCode);
    JobState complete();
    JobState endFailed(unsigned long code);
    JobState drop(JobState endCode);
    void resumeLater();
    void logRetry(const char* verb, unsigned long code) const;
    bool tellStop();
    bool dropPausedRun();
    void takeUpLeft();
    void endLeft(JobState end);

    WaitForServer waitForServer_;

    // Keeps commands of other threads apart from the end of a run: guards the change from a state
    // in which a run takes commands to its final one. Taken before the locks of the base.
    std::mutex stateLock_;
    std::atomic<bool> cancelOnly_{false};  // the next run only drops itself at the storage

    // The work thread's.
    std::unique_ptr<JobHistoryInfo> history_;
    std::unique_ptr<FailedItems> failed_;
    ResumeBackoff backoff_;
    EndFailures endFailures_;     // to complete the run, or to start it for that
    bool retry_ = false;          // the run ends because of something that passes
    bool errorNotified_ = false;  // observers know of runError_
};

}  // namespace dorvo

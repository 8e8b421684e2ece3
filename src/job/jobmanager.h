// The registry of the machine's jobs and the one way to drive them.
//
// Every operation takes the manager's re-entrant lock; hold locker() to keep the result of job() or
// jobs() alive across calls. Jobs are found by id without regard to ASCII case. An operation on an
// id that no job has gives false. Starting a job waits until its run is under way, the bulk
// operations with `wait` until the runs have ended, all under the lock. A removed job is taken out
// under it, and deleted, with its directory, without; submitting its id waits for that.
//
// From open() on it carries out what is in the command queue. The host opens it once, after the
// timer dispatcher, and closes it before. Nothing of a job is joined in the destructor: one that is
// left at the end of the process is left alone.
#pragma once

#include <windows.h>

#include <jobdef/jobdefinition.h>

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/api.h"
#include "base/critical_section.h"
#include "base/log.h"
#include "base/singleton.h"
#include "job/dropteller.h"
#include "job/job.h"
#include "job/jobcmdqueue.h"
#include "job/jobhost.h"

namespace dorvo {

class DORVO_JOB_API JobManagerImpl : public JobCommands, private JobHost {
public:
    // With another way to have runs dropped than by their storages.
    explicit JobManagerImpl(DropTeller::Drop drop = {}) : teller_(std::move(drop)) {}
    JobManagerImpl(const JobManagerImpl&) = delete;
    JobManagerImpl& operator=(const JobManagerImpl&) = delete;

    // Gives the dispatcher a new port and makes a job of every job directory. A directory without a
    // definition, or with one that is none, is deleted; what cannot be read, or can't be
    // initialised, is left out and kept. Always true.
    bool open();
    // Waits for the removals under way, then ends every run and destroys every job. Not with the
    // lock held. Idempotent; the manager can be opened again.
    void close();

    // Adds a job, or gives the job of that id a new definition when none of its runs is under way.
    // Takes the definition in any case. False for null, an id that is no name for a folder, a
    // definition that can't be saved (a job then keeps its own), a type that is not known.
    bool submitJob(JobDefinition* definition);

    const Job* job(const char* id) const;
    // In the order of loading, then of submission.
    const std::vector<Job*>& jobs() const { return jobs_; }
    CriticalSection& locker() { return lock_; }

    bool startJob(const char* id) override;
    bool stopJob(const char* id) override;
    // A pause made by the user.
    bool pauseJob(const char* id) override;
    bool resumeJob(const char* id) override;
    // See Job::resumeAfterError.
    bool resumeJobAfterError(const char* id) override;
    // Refuses starts until lockAllJobs(false).
    bool lockJob(const char* id);
    void lockAllJobs(bool locked);
    bool command(const char* text, const char* id) override;

    // Stops the job and deletes it with its directory when its run has ended; does not wait. Of
    // what was left out at open() the directory is deleted at once.
    bool removeJob(const char* id);
    void removeAllJobs();

    // A failure is logged and costs the other jobs nothing.
    void startAllJobs(bool wait);
    void stopAllJobs(bool wait);
    void pauseAllJobs(bool wait);
    void resumeAllJobs(bool wait);

    // Has the runs told that storages are to drop; waits for nothing, not even for the lock.
    void tellDrops() override { teller_.wake(); }

protected:
    bool deleteJob(const char* id) override;

private:
    void adoptRemoveThread(HANDLE thread) override;
    void joinRemoveThreads();

    // A job directory of which no job was made.
    struct LeftOut {
        std::string id;  // the directory's name
        std::string user;
        std::wstring name;
    };

    Job* find(const char* id) const;
    std::unique_ptr<Job> makeJob(std::unique_ptr<JobDefinition>& definition, const std::string& id);
    void loadJob(const std::wstring& directory, const std::string& name);
    bool makeLoaded(std::unique_ptr<JobDefinition> definition, const std::wstring& directory,
                    const std::string& name);
    std::optional<LeftOut> takeLeftOut(const char* id);
    void removeLeftOut(const LeftOut& gone);
    void hasLeft(const std::string& id);
    // Of a job that is being deleted, whatever comes of that: who awaits its end holds the lock.
    struct Leaving {
        JobManagerImpl& manager;
        const std::string& id;
        ~Leaving() { manager.hasLeft(id); }
    };
    std::unique_ptr<Job> takeRemoved(const char* id);
    // Until the directory of a removed job of that id is deleted or has been given up.
    void awaitLeft(const std::string& id);
    bool updateJob(Job& job, std::unique_ptr<JobDefinition>& definition);
    Job* addJob(std::unique_ptr<JobDefinition>& definition);
    std::unique_ptr<Job> makeSaved(std::unique_ptr<JobDefinition>& definition,
                                   const std::wstring& directory);
    void forAllJobs(bool wait, LogText<std::string, int> failed,
                    LogText<std::string, int> waitFailed,
                    const std::function<bool(Job&)>& operation);

    mutable CriticalSection lock_;      // guards jobs_ and every change of a job
    std::vector<Job*> jobs_;            // owned
    std::vector<LeftOut> leftOut_;      // under lock_ too
    DropTeller teller_;                 // locks itself
    std::mutex leavingLock_;            // guards leaving_
    std::vector<std::string> leaving_;  // ids of jobs that are being deleted, once each
    std::condition_variable left_;      // one of them has gone
    std::mutex removersLock_;           // guards removers_
    std::vector<HANDLE> removers_;      // remove threads to be joined
};

}  // namespace dorvo

extern template class DORVO_JOB_API
    ATL::CComSingleton<dorvo::JobManagerImpl, ATL::CComAutoCriticalSection>;

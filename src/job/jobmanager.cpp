#include "job/jobmanager.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "base/files.h"
#include "base/handle.h"
#include "base/last_error.h"
#include "base/log.h"
#include "base/paths.h"
#include "base/text.h"
#include "base/thread.h"
#include "job/jobdirectories.h"
#include "job/jobfactory.h"
#include "job/pendingdrops.h"
#include "notify/jobnotifymanager.h"
#include "notify/notify_event.h"
#include "scheduler/iocp_dispatcher.h"
#include "settings/storefile.h"
#include "storage/consistentcheck.h"

template class ATL::CComSingleton<dorvo::JobManagerImpl, ATL::CComAutoCriticalSection>;

namespace dorvo {
namespace {

void notifyState(const JobDefinition& definition, JobState state) {
    postEvent(std::make_unique<Event_State>(definition.user().c_str(), definition.id().c_str(),
                                            definition.name().c_str(),
                                            static_cast<unsigned>(state)));
}

}  // namespace

std::unique_ptr<Job> JobManagerImpl::makeJob(std::unique_ptr<JobDefinition>& definition,
                                             const std::string& id) {
    try {
        std::unique_ptr<Job> job = createJob(definition);
        if (job) {
            job->host(*this);
        }
        return job;
    } catch (const std::exception& error) {
        log(LogLevel::error, "Failed to make job {%s}, %s.\n", id, error.what());
        return nullptr;
    }
}

bool JobManagerImpl::open() {
    const FunctionTrace trace("JobManagerImpl::init", "jobmanager.cpp");
    std::lock_guard guard(lock_);
    JobCmdQueue::carriedOutBy(this);  // what is due at once waits for the lock, and is not dropped
    if (std::shared_ptr<Io_Completion_Port> port = Io_Completion_Port::create()) {
        Iocp_Dispatcher::instance()->install(std::move(port));
    } else {
        log(LogLevel::error, "Failed to create a completion port, error-code = %d, %m.\n",
            GetLastError());
    }
    for (const std::wstring& directory : jobDirectories()) {
        loadJob(directory, toUtf8(directory.substr(directory.rfind(L'\\') + 1)));
    }
    teller_.wake();
    return true;
}

void JobManagerImpl::loadJob(const std::wstring& directory, const std::string& name) {
    std::unique_ptr<JobDefinition> definition = readDefinition(directory);
    if (definition) {
        LeftOut directoryOf{name, definition->user(), definition->name()};
        if (!makeLoaded(std::move(definition), directory, name)) {
            leftOut_.push_back(std::move(directoryOf));
        }
        return;
    }
    const DWORD error = GetLastError();
    if (isNoDefinition(error)) {
        if (PendingDrops(name).stay()) {
            return;  // they are told from there; a later start finds the directory empty
        }
        log(LogLevel::information, "Recycle the job directory \"%s\".\n", toUtf8(directory));
        rm_rf(directory, true);
        return;
    }
    log(LogLevel::error,
        "Leave out the job directory \"%s\", whose definition cannot be read, error-code = %d, "
        "%s.\n",
        toUtf8(directory), error, errorText(error));
    leftOut_.push_back({name, {}, {}});
}

bool JobManagerImpl::makeLoaded(std::unique_ptr<JobDefinition> definition,
                                const std::wstring& directory, const std::string& name) {
    const std::string id = definition->id();
    const int type = definition->type();
    // Everything of a job is found by its id: a copied or renamed directory is none of ours.
    if (!equalsIgnoreCase(id, name) || find(id.c_str()) != nullptr) {
        log(LogLevel::warning, "Ignore the job directory \"%s\" of job id:%s.\n", toUtf8(directory),
            id);
        return false;
    }
    std::unique_ptr<Job> job = makeJob(definition, id);
    if (!job) {
        return false;
    }
    if (!job->init()) {
        return logFailed("Init job failed. job type:%d job id:%s.\n", type, id);
    }
    jobs_.push_back(job.release());
    return true;
}

void JobManagerImpl::close() {
    JobCmdQueue::carriedOutBy(nullptr);
    joinRemoveThreads();
    {
        std::lock_guard guard(lock_);
        teller_.signalStop();
        for (Job* job : jobs_) {
            if (job->running()) {
                job->pause(false);  // all at once, before each is waited for
            }
        }
        for (Job* job : std::exchange(jobs_, {})) {
            delete job;
        }
        leftOut_.clear();
        consistentcheckfreeall();
    }
    joinRemoveThreads();  // a removal that came in between finds no job
    teller_.stop();       // last, and without the lock: it may wait for a server that is not there
}

Job* JobManagerImpl::find(const char* id) const {
    if (id == nullptr) {
        return nullptr;
    }
    const auto found = std::find_if(jobs_.begin(), jobs_.end(), [&](const Job* job) {
        return equalsIgnoreCase(job->definition().id(), id);
    });
    return found == jobs_.end() ? nullptr : *found;
}

const Job* JobManagerImpl::job(const char* id) const {
    std::lock_guard guard(lock_);
    return find(id);
}

bool JobManagerImpl::submitJob(JobDefinition* submitted) {
    std::unique_ptr<JobDefinition> definition(submitted);
    if (!definition) {
        return false;
    }
    std::lock_guard guard(lock_);
    Job* job = find(definition->id().c_str());
    const JobState state = job != nullptr ? JobState::updated : JobState::created;
    if (job != nullptr) {
        if (!updateJob(*job, definition)) {
            return false;
        }
    } else {
        job = addJob(definition);
        if (job == nullptr) {
            return false;
        }
    }
    const JobDefinition& said = definition ? *definition : job->definition();
    notifyState(said, state);
    job->init();
    if (job->isRunOnce()) {
        job->start();
    } else if (!job->isManual()) {
        notifyState(said, JobState::idle);
    }
    return true;
}

bool JobManagerImpl::updateJob(Job& job, std::unique_ptr<JobDefinition>& definition) {
    if (definition->type() != job.definition().type()) {
        return logFailed(ERROR_INVALID_PARAMETER,
                         "Submit job failed, job {%s} is of another type.\n", definition->id());
    }
    if (isRestartable(static_cast<JobState>(job.state()))) {
        // On the disk first: what counts as saved is there after the next start.
        if (!saveDefinition(*definition)) {
            return false;
        }
        job.definition(std::move(definition));
    }
    return true;
}

Job* JobManagerImpl::addJob(std::unique_ptr<JobDefinition>& definition) {
    const std::string id = definition->id();
    if (!isJobId(id)) {
        log(LogLevel::error, "Submit job failed, {%s} is no job id.\n", id);
        SetLastError(ERROR_INVALID_NAME);
        return nullptr;
    }
    awaitLeft(id);
    std::wstring directory;
    // A directory that cannot be looked at is there: it is not this submission's to take back.
    const bool known = jobDirectory(id, directory) && !isMissing(directory);
    std::unique_ptr<Job> job = makeSaved(definition, directory);
    if (!job) {
        const LastErrorGuard keep;
        if (!known && !directory.empty()) {
            rm_rf(directory, true);
        }
        return nullptr;
    }
    std::erase_if(leftOut_, [&](const LeftOut& other) { return equalsIgnoreCase(other.id, id); });
    // A place first: the job is not lost when there is none.
    jobs_.push_back(nullptr);
    return jobs_.back() = job.release();
}

// A directory whose definition could not be read is taken over only when there is a job to put
// there.
std::unique_ptr<Job> JobManagerImpl::makeSaved(std::unique_ptr<JobDefinition>& definition,
                                               const std::wstring& directory) {
    const std::string id = definition->id();
    createDirectories(directory);  // for the job's record; without it saving fails, too
    std::unique_ptr<Job> job = makeJob(definition, id);
    if (!job) {
        log(LogLevel::error, "Submit job failed, no job is made of job {%s}.\n", id);
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    if (!saveDefinition(job->definition())) {
        const LastErrorGuard keep;
        job.reset();
    }
    return job;
}

bool JobManagerImpl::startJob(const char* id) {
    std::lock_guard guard(lock_);
    Job* job = find(id);
    return job != nullptr && job->start();
}

bool JobManagerImpl::stopJob(const char* id) {
    std::lock_guard guard(lock_);
    Job* job = find(id);
    return job != nullptr && job->stop();
}

bool JobManagerImpl::pauseJob(const char* id) {
    std::lock_guard guard(lock_);
    Job* job = find(id);
    return job != nullptr && job->pause(true);
}

bool JobManagerImpl::resumeJob(const char* id) {
    std::lock_guard guard(lock_);
    Job* job = find(id);
    return job != nullptr && job->resume();
}

bool JobManagerImpl::resumeJobAfterError(const char* id) {
    std::lock_guard guard(lock_);
    Job* job = find(id);
    return job != nullptr && job->resumeAfterError();
}

bool JobManagerImpl::lockJob(const char* id) {
    std::lock_guard guard(lock_);
    Job* job = find(id);
    return job != nullptr && job->lock(true);
}

void JobManagerImpl::lockAllJobs(bool locked) {
    std::lock_guard guard(lock_);
    for (Job* job : jobs_) {
        job->lock(locked);
    }
}

bool JobManagerImpl::command(const char* text, const char* id) {
    std::lock_guard guard(lock_);
    Job* job = find(id);
    return job != nullptr && job->command(text);
}

bool JobManagerImpl::removeJob(const char* id) {
    std::optional<LeftOut> leftOut;
    {
        const std::lock_guard guard(lock_);
        log(LogLevel::information, "Remove job %s.\n", id == nullptr ? "" : id);
        if (Job* job = find(id); job != nullptr) {
            return job->remove();
        }
        leftOut = takeLeftOut(id);
    }
    if (!leftOut) {
        return logFailed("Remove job failed, job %s is not found.\n", id == nullptr ? "" : id);
    }
    removeLeftOut(*leftOut);
    return true;
}

// Its id stays taken until its directory is gone.
std::optional<JobManagerImpl::LeftOut> JobManagerImpl::takeLeftOut(const char* id) {
    const auto found = std::find_if(leftOut_.begin(), leftOut_.end(), [&](const LeftOut& other) {
        return id != nullptr && equalsIgnoreCase(other.id, id);
    });
    std::wstring directory;
    if (found == leftOut_.end() || !jobDirectory(found->id, directory)) {
        return std::nullopt;
    }
    LeftOut gone = std::move(*found);
    leftOut_.erase(found);
    const std::lock_guard leaving(leavingLock_);
    leaving_.push_back(gone.id);
    return gone;
}

// Without the lock: whoever looks into the directory is waited for.
void JobManagerImpl::removeLeftOut(const LeftOut& gone) {
    const Leaving left{*this, gone.id};
    PendingDrops(gone.id).handOn();
    removeJobDirectory(gone.id);
    postEvent(std::make_unique<Event_State>(gone.user.c_str(), gone.id.c_str(), gone.name.c_str(),
                                            static_cast<unsigned>(JobState::deleted)));
}

void JobManagerImpl::removeAllJobs() {
    std::lock_guard guard(lock_);
    for (Job* job : jobs_) {
        job->remove();
    }
}

bool JobManagerImpl::deleteJob(const char* id) {
    std::unique_ptr<Job> job = takeRemoved(id);
    if (!job) {
        return false;
    }
    const std::string own = job->definition().id();
    const Leaving left{*this, own};
    job.reset();  // without the lock, as above
    return true;
}

void JobManagerImpl::hasLeft(const std::string& id) {
    {
        const std::lock_guard guard(leavingLock_);
        std::erase(leaving_, id);
    }
    left_.notify_all();
    teller_.wake();
}

// Its id stays taken until its directory is gone.
std::unique_ptr<Job> JobManagerImpl::takeRemoved(const char* id) {
    const std::lock_guard guard(lock_);
    log(LogLevel::information, "Delete job %s.\n", id);
    Job* const job = find(id);
    // A job that came after the removed one under its id is another.
    if (job == nullptr || !job->removing()) {
        log(LogLevel::error, "Delete job failed, job %s is not found.\n", id);
        return nullptr;
    }
    {
        const std::lock_guard leaving(leavingLock_);
        leaving_.push_back(job->definition().id());
    }
    jobs_.erase(std::find(jobs_.begin(), jobs_.end(), job));
    return std::unique_ptr<Job>(job);
}

void JobManagerImpl::awaitLeft(const std::string& id) {
    std::unique_lock guard(leavingLock_);
    left_.wait(guard, [&] {
        return std::none_of(leaving_.begin(), leaving_.end(),
                            [&](const std::string& other) { return equalsIgnoreCase(other, id); });
    });
}

void JobManagerImpl::adoptRemoveThread(HANDLE thread) {
    std::lock_guard guard(removersLock_);
    const auto ended = std::partition(removers_.begin(), removers_.end(), [](HANDLE other) {
        return WaitForSingleObject(other, 0) != WAIT_OBJECT_0;
    });
    std::for_each(ended, removers_.end(), joinThread);
    removers_.erase(ended, removers_.end());
    removers_.push_back(thread);
}

void JobManagerImpl::joinRemoveThreads() {
    std::vector<HANDLE> threads;
    {
        std::lock_guard guard(removersLock_);
        threads.swap(removers_);
    }
    for (HANDLE& thread : threads) {
        joinThread(thread);
    }
}

void JobManagerImpl::forAllJobs(bool wait, LogText<std::string, int> failed,
                                LogText<std::string, int> waitFailed,
                                const std::function<bool(Job&)>& operation) {
    std::lock_guard guard(lock_);
    for (Job* job : jobs_) {
        if (!operation(*job)) {
            log(LogLevel::error, failed, job->definition().id(), GetLastError());
        }
    }
    if (!wait) {
        return;
    }
    for (Job* job : jobs_) {
        if (!job->wait(INFINITE)) {
            log(LogLevel::error, waitFailed, job->definition().id(), GetLastError());
        }
    }
}

void JobManagerImpl::startAllJobs(bool wait) {
    forAllJobs(wait, "Failed to start job %s, error-code = %d, %m.\n",
               "Failed to wait job %s to start, error-code = %d, %m.\n",
               [](Job& job) { return job.start(); });
}

void JobManagerImpl::stopAllJobs(bool wait) {
    forAllJobs(wait, "Failed to stop job %s, error-code = %d, %m.\n",
               "Failed to wait job %s to stop, error-code = %d, %m.\n",
               [](Job& job) { return job.stop(); });
}

void JobManagerImpl::pauseAllJobs(bool wait) {
    forAllJobs(wait, "Failed to pause job %s, error-code = %d, %m.\n",
               "Failed to wait job %s to pause, error-code = %d, %m.\n",
               [](Job& job) { return job.pause(false); });
}

void JobManagerImpl::resumeAllJobs(bool wait) {
    forAllJobs(wait, "Failed to pause job %s, error-code = %d, %m.\n",
               "Failed to wait job %s to resume, error-code = %d, %m.\n",
               [](Job& job) { return job.resume(); });
}

}  // namespace dorvo

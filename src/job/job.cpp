#include "job/job.h"

#include <exception>
#include <sstream>
#include <system_error>
#include <utility>

#include "base/last_error.h"
#include "base/local_time.h"
#include "base/log.h"
#include "base/paths.h"
#include "base/thread.h"
#include "job/jobdirectories.h"
#include "job/jobmanager.h"
#include "record/jobwait.h"

namespace dorvo {
namespace {

using Manager = ATL::CComSingleton<JobManagerImpl, ATL::CComAutoCriticalSection>;

KernelHandle makeEvent(bool manualReset) {
    KernelHandle event(CreateEventW(nullptr, manualReset ? TRUE : FALSE, FALSE, nullptr));
    if (!event) {
        throw std::system_error(static_cast<int>(GetLastError()), std::system_category());
    }
    return event;
}

}  // namespace

// What a remove thread works with: by the time it ends, the job is gone.
struct Job::Removal {
    std::string id;
    KernelHandle workThread;
};

Job::Job(std::unique_ptr<JobDefinition> definition)
    : definition_(std::move(definition)),
      commandEvent_(makeEvent(false)),
      stopEvent_(makeEvent(true)),
      lifecycle_(activity_, [this](JobState state) { notify_state(state); }) {
    if (!activity_.open(definition_->id().c_str(), true)) {
        activity_.close();
    }
}

Job::~Job() {
    shutdown();
    if (removing_) {
        remove_impl();
    }
}

void Job::shutdown() {
    {
        std::lock_guard guard(resumeLock_);
        closing_ = true;
        resumeTimer_.reset();
    }
    if (running() && carriesOn(lifecycle_.state())) {
        pause(false);
    }
    join();
    if (removing_ && activity_.get() != nullptr) {
        // What of its folder stays must not be taken for a run that goes on.
        lifecycle_.forget();
    }
}

void Job::definition(std::unique_ptr<JobDefinition> definition) {
    join();
    definition_ = std::move(definition);
}

bool Job::start() {
    if (activity_.get() == nullptr) {
        return false;
    }
    threadless_ = false;
    const bool started = setOff(JobRequest::start);
    const LastErrorGuard keep;
    startAsked(!started || threadless_);
    return started;
}

bool Job::resume() {
    return setOff(JobRequest::resume);
}

// A start or a resume.
bool Job::setOff(JobRequest request) {
    switch (answer(request, lifecycle_.state())) {
        case Answer::begin: return beginRun();
        case Answer::goOn: return goOn();
        case Answer::takeBack: takeBackPause(); return true;
        default: return false;
    }
}

bool Job::goOn() {
    if (!activity_->hasInstance()) {
        return startAllowed() && beginRun();  // parked while idle: there is no run to go on with
    }
    activity_->resuming = 1;
    return startTask();
}

bool Job::resumeAfterError() {
    if (lifecycle_.state() != JobState::paused || activity_->pausedManually != 0) {
        return false;
    }
    return resume();
}

// Under one lock with pollEvent(): the run has seen either the pause or nothing of it.
void Job::takeBackPause() {
    std::lock_guard guard(commandLock_);
    if (lifecycle_.pending() != JobState::pausing) {
        return;
    }
    activity_->pausedManually = 0;
    lifecycle_.pend(JobState::none);
    command_ = JobCommand::resume;
    ++pausesTakenBack_;
    ResetEvent(stopEvent_.get());
    SetEvent(commandEvent_.get());
}

bool Job::beginRun() {
    // What is left of the former run must not write into the new one's record. A job that is being
    // removed starts nothing, and its remove thread waits for the run.
    if (!removing_ && !join()) {
        return false;
    }
    lifecycle_.reset();
    return createInstance() && startTask();
}

bool Job::startAllowed() const {
    if (removing_) {
        log(LogLevel::warning, "Job %s is removing, do not allow to start.\n",
            definition_->id().c_str());
        return false;
    }
    if (locked_) {
        log(LogLevel::warning, "Job %s is locked temporarily, do not allow to start.\n",
            definition_->id().c_str());
        return false;
    }
    return true;
}

bool Job::startTask() {
    if (!startAllowed() || activity_.get() == nullptr || !join()) {
        return false;
    }
    {
        std::lock_guard guard(commandLock_);
        command_ = JobCommand::none;
        ResetEvent(commandEvent_.get());
        ResetEvent(stopEvent_.get());
    }
    lifecycle_.pend(JobState::none);

    startEvent_.reset(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    if (startEvent_ && startThread(run_wrapper, this, workThread_)) {
        const HANDLE either[] = {startEvent_.get(), workThread_};
        WaitForMultipleObjects(2, either, FALSE, INFINITE);
    } else {
        const LastErrorGuard keep;
        log(LogLevel::error, "Failed to start the work thread of job {%s}, error-code = %d, %m.\n",
            definition_->id().c_str(), keep.error());
        endWithoutThread(keep.error());
    }
    startEvent_.reset();
    return true;
}

// Nobody else will say that this start has come to an end. A paused run stays one: it is not lost
// for want of a thread.
void Job::endWithoutThread(unsigned long code) {
    threadless_ = true;
    if (isRestartable(lifecycle_.state())) {
        lifecycle_.end(JobState::error, static_cast<uint32_t>(code));
    }
    notify_error(code);
    notify_state();
}

DWORD WINAPI Job::run_wrapper(void* self) {
    auto* job = static_cast<Job*>(self);
    job->running_ = true;
    DWORD result = 1;
    try {
        result = job->run();
    } catch (const std::exception& error) {
        log(LogLevel::error, "Run of job {%s} failed, %s.\n", job->definition_->id().c_str(),
            error.what());
        job->lifecycle_.pend(JobState::none);
        job->lifecycle_.move(JobState::error);
    }
    job->running_ = false;
    return result;
}

bool Job::wait(DWORD timeoutMs) const {
    return workThread_ == nullptr || WaitForSingleObject(workThread_, timeoutMs) == WAIT_OBJECT_0;
}

bool Job::join() {
    return joinThread(workThread_);
}

bool Job::emit(JobCommand command) {
    std::lock_guard guard(commandLock_);
    command_ = command;
    // The command first: a step that the stop breaks off looks for the reason at once.
    const bool told = SetEvent(commandEvent_.get()) != 0;
    const LastErrorGuard keep;
    if (command == JobCommand::stop || command == JobCommand::pause) {
        SetEvent(stopEvent_.get());
    }
    return told;
}

bool Job::pollEvent(unsigned long timeoutMs) {
    for (;;) {
        const DWORD waited = WaitForSingleObject(commandEvent_.get(), timeoutMs);
        if (waited == WAIT_TIMEOUT) {
            return carriesOn(lifecycle_.state());
        }
        if (waited != WAIT_OBJECT_0) {
            log(LogLevel::error, "WaitForSingleObject failed. errorcode = %d, %m.\n",
                GetLastError());
            lifecycle_.pend(JobState::none);
            return false;
        }
        std::lock_guard guard(commandLock_);
        const char* event = commandEvent(command_);
        if (event == nullptr) {
            continue;
        }
        log(LogLevel::debug, "%s", event);
        const bool carryOn = lifecycle_.obey(command_);
        if (carryOn) {
            ResetEvent(stopEvent_.get());
        }
        return carryOn;
    }
}

bool Job::pause(bool manual) {
    JobActivity* record = activity_.get();
    if (record == nullptr) {
        return false;
    }
    switch (answer(JobRequest::pause, lifecycle_.state())) {
        case Answer::park:
            record->instanceId = {};
            record->pausedManually = manual ? 1 : 0;
            lifecycle_.move(JobState::paused, Lifecycle::Tell::nobody);
            return true;
        case Answer::tell: return tellPause(manual);
        case Answer::keep:
            if (manual) {
                keepPaused();
            }
            return true;
        default: return true;
    }
}

bool Job::tellPause(bool manual) {
    const JobState pending = lifecycle_.pending();
    if (pending == JobState::pausing) {
        if (manual) {
            keepPaused();
        }
        emit(JobCommand::pause);
        return true;
    }
    if (pending == JobState::canceling || pending == JobState::error) {
        emit(JobCommand::stop);
        return true;
    }
    activity_->pausedManually = manual ? 1 : 0;
    lifecycle_.pend(JobState::pausing);
    if (!emit(JobCommand::pause)) {
        return false;
    }
    notify_state(JobState::pausing);
    return true;
}

void Job::keepPaused() {
    std::lock_guard guard(resumeLock_);
    activity_->pausedManually = 1;
    activity_.sync();
    resumeTimer_.reset();
}

bool Job::armResume(uint64_t delayMs) {
    std::lock_guard guard(resumeLock_);
    if (closing_ || activity_.get() == nullptr || activity_->pausedManually != 0) {
        return false;
    }
    if (!resumeTimer_) {
        resumeTimer_ = std::make_unique<ErrorResumeTimer>(definition_->id());
    }
    resumeTimer_->delay(delayMs);
    if (!resumeTimer_->arm()) {
        return false;
    }
    // For those who show the job; the resume comes without it too.
    saveWait(definition_->id(), utcTimeNow() + delayMs * ticksPerMillisecond);
    return true;
}

void Job::disarmResume() {
    std::lock_guard guard(resumeLock_);
    resumeTimer_.reset();
}

bool Job::remove() {
    const std::string& id = definition_->id();
    if (removing_) {
        log(LogLevel::information, "Job %s is removing.\n", id.c_str());
    }
    if (running() && !stop()) {
        log(LogLevel::error, "Failed to stop job %s.\n", id.c_str());
        return false;
    }
    removing_ = true;
    auto removal = std::make_unique<Removal>(Removal{id, {}});
    HANDLE copy = nullptr;
    if (workThread_ != nullptr &&
        DuplicateHandle(GetCurrentProcess(), workThread_, GetCurrentProcess(), &copy, SYNCHRONIZE,
                        FALSE, 0) != 0) {
        removal->workThread.reset(copy);
    }
    HANDLE thread = nullptr;
    if ((workThread_ != nullptr && copy == nullptr) ||
        !startThread(remove_thread, removal.get(), thread)) {
        log(LogLevel::error, "Failed to start the remove thread of job %s, error-code = %d, %m.\n",
            id.c_str(), GetLastError());
        return false;
    }
    static_cast<void>(removal.release());  // the thread's now
    Manager::instance()->adoptRemoveThread(thread);
    return true;
}

DWORD WINAPI Job::remove_thread(void* argument) {
    constexpr auto failed = static_cast<DWORD>(-1);
    const std::unique_ptr<Removal> removal(static_cast<Removal*>(argument));
    if (removal->workThread &&
        WaitForSingleObject(removal->workThread.get(), INFINITE) != WAIT_OBJECT_0) {
        log(LogLevel::error, "Failed to wait the work thread to exit, error-code = %d, %m.\n",
            GetLastError());
        return failed;
    }
    return Manager::instance()->deleteJob(removal->id.c_str()) ? 0 : failed;
}

bool Job::remove_impl() {
    activity_.close();
    removeJobDirectory(definition_->id());
    notify_state(JobState::deleted);
    return true;
}

bool Job::commandimpl(const char*) {
    return false;
}

void Job::startAsked(bool) {}

const char* Job::commandEvent(JobCommand command) {
    switch (command) {
        case JobCommand::stop: return "Event STOP.\n";
        case JobCommand::pause: return "Event PAUSE.\n";
        case JobCommand::resume: return "Event RESUME.\n";
        case JobCommand::none: break;
    }
    return nullptr;
}

}  // namespace dorvo

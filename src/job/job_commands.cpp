// What a job makes of each command, on the caller's thread: the table of statetable.cpp says which
// of these it is.
#include "base/last_error.h"
#include "base/local_time.h"
#include "base/log.h"
#include "base/thread.h"
#include "job/job.h"
#include "record/jobwait.h"

namespace dorvo {

bool Job::init() {
    JobActivity* const record = activity_.get();
    if (record == nullptr) {
        return false;
    }
    if (running()) {
        return true;
    }
    switch (answer(JobRequest::init, lifecycle_.state())) {
        case Answer::takeUp: takeUpLeft(); break;
        case Answer::distrust:
            // Nothing else of the record is to be trusted either: the next run is a new one.
            log(LogLevel::error, "The record of job {%s} has no state of a job, but %d.\n",
                definition_->id(), record->state);
            record->endError = ERROR_FILE_CORRUPT;
            lifecycle_.move(JobState::error, Lifecycle::Tell::nobody);
            break;
        default: break;
    }
    if (lifecycle_.pending() != JobState::none) {
        lifecycle_.pend(JobState::none);
    }
    if (lifecycle_.state() == JobState::paused && record->hasInstance()) {
        armResume();
    }
    return true;
}

void Job::takeUpLeft() {
    const JobState state = lifecycle_.state();
    const JobState pending = lifecycle_.pending();
    const JobState left = leftAs(state, pending);
    if (left != JobState::paused) {
        endLeft(left);
        return;
    }
    // A pause that its user has seen begin stays the user's.
    if (state != JobState::pausing && pending != JobState::pausing) {
        activity_->pausedManually = 0;
    }
    lifecycle_.move(JobState::paused, Lifecycle::Tell::nobody);
}

void Job::endLeft(JobState end) {
    lifecycle_.end(end, activity_->endError);
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

bool Job::stop() {
    if (activity_.get() == nullptr) {
        return false;
    }
    std::unique_lock guard(stateLock_);
    switch (answer(JobRequest::stop, lifecycle_.state())) {
        case Answer::tell: return tellStop();
        case Answer::drop: guard.unlock(); return dropPausedRun();
        default: return true;
    }
}

bool Job::tellStop() {
    const bool again = lifecycle_.pending() == JobState::canceling;
    if (!emit(JobCommand::stop)) {
        return false;
    }
    // After the command: a thread that was busy pausing clears what it finds, and must find this
    // at its end.
    lifecycle_.pend(JobState::canceling);
    stopAsked();
    if (!again) {
        notify_state(JobState::canceling);
    }
    return true;
}

bool Job::dropPausedRun() {
    if (!activity_->hasInstance()) {
        // Parked before its first run: there is nothing to cancel.
        disarmResume();
        activity_->pausedManually = 0;
        lifecycle_.move(JobState::cancelled);
        return true;
    }
    dropOnly_ = true;
    // A run that has begun has left the state `paused`, and disarmed the resume; starting counts as
    // done without a thread too.
    if (!startTask() || lifecycle_.state() == JobState::paused) {
        dropOnly_ = false;
        return false;
    }
    return true;
}

bool Job::pause(bool manual) {
    std::lock_guard guard(stateLock_);
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
        stopAsked();
        return true;
    }
    if (pending == JobState::canceling || pending == JobState::error) {
        emit(JobCommand::stop);
        stopAsked();
        return true;
    }
    activity_->pausedManually = manual ? 1 : 0;
    lifecycle_.pend(JobState::pausing);
    if (!emit(JobCommand::pause)) {
        return false;
    }
    stopAsked();
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

// What a remove thread works with: by the time it ends, the job is gone.
struct Job::Removal {
    JobHost& host;
    std::string id;
    KernelHandle workThread;
};

bool Job::remove() {
    const std::string& id = definition_->id();
    if (removing_) {
        log(LogLevel::information, "Job %s is removing.\n", id);
    }
    if (running() && !stop()) {
        return logFailed("Failed to stop job %s.\n", id);
    }
    removing_ = true;
    if (host_ == nullptr) {
        return true;
    }
    auto removal = std::make_unique<Removal>(Removal{*host_, id, {}});
    HANDLE copy = nullptr;
    if (workThread_ != nullptr &&
        DuplicateHandle(GetCurrentProcess(), workThread_, GetCurrentProcess(), &copy, SYNCHRONIZE,
                        FALSE, 0) != 0) {
        removal->workThread.reset(copy);
    }
    HANDLE thread = nullptr;
    if ((workThread_ != nullptr && copy == nullptr) ||
        !startThread(remove_thread, removal.get(), thread)) {
        return logFailed("Failed to start the remove thread of job %s, error-code = %d, %m.\n", id,
                         GetLastError());
    }
    static_cast<void>(removal.release());  // the thread's now
    host_->adoptRemoveThread(thread);
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
    return removal->host.deleteJob(removal->id.c_str()) ? 0 : failed;
}

}  // namespace dorvo

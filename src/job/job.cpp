#include "job/job.h"

#include <exception>
#include <sstream>
#include <system_error>
#include <utility>

#include "base/last_error.h"
#include "base/log.h"
#include "base/paths.h"
#include "base/thread.h"
#include "job/jobdirectories.h"
#include "job/pendingdrops.h"

namespace dorvo {
namespace {

KernelHandle makeEvent(bool manualReset) {
    KernelHandle event(CreateEventW(nullptr, manualReset ? TRUE : FALSE, FALSE, nullptr));
    if (!event) {
        throw std::system_error(static_cast<int>(GetLastError()), std::system_category());
    }
    return event;
}

}  // namespace

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
        log(LogLevel::warning, "Job %s is removing, do not allow to start.\n", definition_->id());
        return false;
    }
    if (locked_) {
        log(LogLevel::warning, "Job %s is locked temporarily, do not allow to start.\n",
            definition_->id());
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
            definition_->id(), keep.error());
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
        log(LogLevel::error, "Run of job {%s} failed, %s.\n", job->definition_->id(), error.what());
        job->dropOnly_ = false;
        {
            const std::lock_guard guard(job->stateLock_);
            job->lifecycle_.end(JobState::error, ERROR_INTERNAL_ERROR);
        }
        job->notify_error(ERROR_INTERNAL_ERROR);
        job->notify_state();
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

bool Job::remove_impl() {
    activity_.close();
    removeJobDirectory(definition_->id());
    notify_state(JobState::deleted);
    return true;
}

bool Job::commandimpl(const char*) {
    return false;
}

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

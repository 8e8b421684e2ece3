#include "job/transferjob.h"

#include <exception>

#include "base/disk_room.h"
#include "base/last_error.h"
#include "base/log.h"
#include "base/singleton.h"
#include "base/text.h"
#include "base/uuid.h"
#include "httpmsg/http_names.h"
#include "settings/options.h"

namespace dorvo {
namespace {

bool optionToWait() {
    return ATL::CComSingleton<OptionsImpl, ATL::CComAutoCriticalSection>::instance()
        ->waitForServer();
}

}  // namespace

TransferJob::TransferJob(std::unique_ptr<JobDefinition> definition, WaitForServer waitForServer)
    : Job(std::move(definition)),
      waitForServer_(waitForServer ? std::move(waitForServer) : optionToWait) {}

bool TransferJob::init() {
    JobActivity* const record = activity().get();
    if (record == nullptr) {
        return false;
    }
    if (running()) {
        return true;
    }
    switch (answer(JobRequest::init, lifecycle().state())) {
        case Answer::takeUp: takeUpLeft(); break;
        case Answer::distrust:
            // Nothing else of the record is to be trusted either: the next run is a new one.
            log(LogLevel::error, "The record of job {%s} has no state of a job, but %d.\n",
                definition().id().c_str(), record->state);
            record->endError = ERROR_FILE_CORRUPT;
            lifecycle().move(JobState::error, Lifecycle::Tell::nobody);
            break;
        default: break;
    }
    if (lifecycle().pending() != JobState::none) {
        lifecycle().pend(JobState::none);
    }
    if (lifecycle().state() == JobState::paused && record->hasInstance()) {
        armResume();
    }
    return true;
}

void TransferJob::takeUpLeft() {
    const JobState state = lifecycle().state();
    const JobState pending = lifecycle().pending();
    const JobState left = leftAs(state, pending);
    if (left != JobState::paused) {
        endLeft(left);
        return;
    }
    // A pause that its user has seen begin stays the user's.
    if (state != JobState::pausing && pending != JobState::pausing) {
        activity()->pausedManually = 0;
    }
    lifecycle().move(JobState::paused, Lifecycle::Tell::nobody);
}

// The storage may have dropped the run that a crash has left: here it ends now.
void TransferJob::endLeft(JobState end) {
    runError_ = end == JobState::cancelled ? DWORD{ERROR_CANCELLED} : activity()->endError;
    openHistory();
    writeHistory(end);
    closeHistory();
    tidyUp(end);
    lifecycle().end(end, static_cast<uint32_t>(runError_));
}

bool TransferJob::stop() {
    if (activity().get() == nullptr) {
        return false;
    }
    std::unique_lock guard(stateLock_);
    switch (answer(JobRequest::stop, lifecycle().state())) {
        case Answer::tell: return tellStop();
        case Answer::drop: guard.unlock(); return dropPausedRun();
        default: return true;
    }
}

bool TransferJob::tellStop() {
    const bool again = lifecycle().pending() == JobState::canceling;
    if (!emit(JobCommand::stop)) {
        return false;
    }
    // After the command: a thread that was busy pausing clears what it finds, and must find this
    // at its end.
    lifecycle().pend(JobState::canceling);
    stopAsked();
    if (!again) {
        notify_state(JobState::canceling);
    }
    return true;
}

bool TransferJob::dropPausedRun() {
    if (!activity()->hasInstance()) {
        // Parked before its first run: there is nothing to cancel.
        disarmResume();
        activity()->pausedManually = 0;
        lifecycle().move(JobState::cancelled);
        return true;
    }
    cancelOnly_ = true;
    // A run that has begun has left the state `paused`, and disarmed the resume; starting counts as
    // done without a thread too.
    if (!startTask() || lifecycle().state() == JobState::paused) {
        cancelOnly_ = false;
        return false;
    }
    return true;
}

bool TransferJob::pause(bool manual) {
    std::lock_guard guard(stateLock_);
    if (!Job::pause(manual)) {
        return false;
    }
    if (stopping()) {
        stopAsked();
    }
    return true;
}

unsigned long TransferJob::carryOut() {
    disarmResume();
    retry_ = false;
    errorNotified_ = false;
    runError_ = ERROR_SUCCESS;
    atStorage_ = false;
    closeStorage();
    totals_ = {};
    forgetRun();
    if (activity()->resuming == 0) {
        backoff_.reset();
        endFailures_ = {};
    }
    const bool cancelOnly = cancelOnly_.exchange(false);
    activity()->pausedManually = 0;
    activity()->endError = ERROR_SUCCESS;
    // Observers hear of it once the starter is released.
    lifecycle().move(cancelOnly ? JobState::canceling : JobState::starting,
                     Lifecycle::Tell::nobody);
    openHistory();
    JobState endCode = JobState::cancelled;
    if (cancelOnly) {
        emit(JobCommand::stop);  // a server that stalls has as much time as with a running job
        setStartEvent();
        notify_state();
        atStorage_ = true;
    } else {
        try {
            endCode = transfer();
        } catch (const std::exception& error) {
            log(LogLevel::error, "Run of job {%s} failed, %s.\n", definition().id().c_str(),
                error.what());
            runError_ = ERROR_INTERNAL_ERROR;
            endCode = JobState::error;
        }
    }
    finish(endCode);
    return runError_;
}

void TransferJob::finish(JobState endCode) {
    for (;;) {
        endCode = cleanup(endCode);
        std::lock_guard guard(stateLock_);
        if (endCode == JobState::paused && lifecycle().pending() == JobState::canceling) {
            endCode = JobState::cancelled;  // the stop came while the run wound down
            continue;
        }
        if (endCode == JobState::cancelled) {
            runError_ = ERROR_CANCELLED;
        }
        if (isFinal(endCode)) {
            runEnds();
        }
        lifecycle().end(endCode, static_cast<uint32_t>(runError_));
        break;
    }
    closeStorage();
    closeHistory();
    if (endCode == JobState::error && !errorNotified_) {
        notify_error(runError_);
    }
    notify_state(endCode);
    if (endCode == JobState::paused && retry_) {
        resumeLater();
    }
}

void TransferJob::resumeLater() {
    const JobActivity& record = *activity().get();
    const uint64_t waitMs = backoff_.afterFailureAt(
        {record.totalSize, record.sourcePosition, record.acceptedBlocks, record.fileOffset});
    if (armResume(waitMs)) {
        log(LogLevel::information, "Job {%s} tries again in %Q seconds.\n",
            definition().id().c_str(), waitMs / 1000);
    }
}

std::optional<uint64_t> TransferJob::roomAt(const std::wstring& folder) const {
    return diskRoom(folder);
}

bool TransferJob::fits(const DiskNeed& one, const DiskNeed& other) const {
    return fitsOnDisk(one, other);
}

JobState TransferJob::cleanup(JobState endCode) {
    if (endCode == JobState::completed) {
        endCode = complete();
    } else if (isFinal(endCode)) {
        endCode = drop(endCode);
    }
    writeHistory(endCode);
    tidyUp(endCode);
    return endCode;
}

JobState TransferJob::complete() {
    return completeAtStorage() ? JobState::completed : endFailed(GetLastError());
}

JobState TransferJob::endFailed(unsigned long code) {
    Failure failure = failureOf(code);
    failure.stopping = false;  // a pending stop is seen to afterwards
    endFailures_ = withOneMore(endFailures_, failure);
    const FailureAction action = endAction(failure, endFailures_);
    if (action == FailureAction::settle) {
        log(LogLevel::warning,
            "Job {%s, %s} is completed, but its storage does not take the history of the run, "
            "error-code = %d, %s.\n",
            definition().id().c_str(), toUtf8(definition().name()).c_str(),
            static_cast<int>(withoutHttpMark(static_cast<uint32_t>(code))),
            reasonText(code).c_str());
        return JobState::completed;
    }
    logRetry("end", code);
    runError_ = code;
    notify_error(code);
    errorNotified_ = true;
    // What was broken off or went wrong has not been refused: the resumed run ends again.
    if (action != FailureAction::fail) {
        retry_ = true;
        return JobState::paused;
    }
    return drop(JobState::error);
}

// Whatever a crash leaves then, the run does not go on: the storage may have dropped it.
JobState TransferJob::drop(JobState endCode) {
    if (atStorage_ && endCode == JobState::error) {
        activity()->endError = static_cast<uint32_t>(runError_);
        lifecycle().pend(endCode);
    }
    if (atStorage_ && !dropAtStorage(endCode)) {
        logRetry("cancel", GetLastError());
    }
    atStorage_ = false;
    if (endCode == JobState::completed) {
        runError_ = ERROR_SUCCESS;
        log(LogLevel::information, "Job {%s} was to be dropped, but has been completed before.\n",
            definition().id().c_str());
    }
    return endCode;
}

void TransferJob::logRetry(const char* verb, unsigned long code) const {
    const std::string id = definition().id();
    const std::string name = toUtf8(definition().name());
    if (isHttpStatus(static_cast<uint32_t>(code))) {
        const int status = static_cast<int>(withoutHttpMark(static_cast<uint32_t>(code)));
        log(LogLevel::error, "Failed to %s job {%s, %s}, error-code = %d, %s, retrying latter.\n",
            verb, id.c_str(), name.c_str(), status, http_status_string(status));
        return;
    }
    SetLastError(code);
    log(LogLevel::error, "Failed to %s job {%s, %s}, error-code = %d, %m, retrying latter.\n", verb,
        id.c_str(), name.c_str(), static_cast<int>(code));
}

Failure TransferJob::failureOf(unsigned long code) {
    return {static_cast<uint32_t>(code), is_network_error(code), stopping(), waitForServer_()};
}

void TransferJob::pauseForRetry(unsigned long code) {
    runError_ = code;
    errorNotified_ = true;
    notify_error(code);
    park();
}

// Whoever takes the pause back wants the run to go on: that is what it is going to do.
void TransferJob::park() {
    retry_ = true;
    if (lifecycle().state() != JobState::pausing) {
        pause(false);
        if (pollEvent(0)) {
            lifecycle().move(JobState::pausing, Lifecycle::Tell::nobody);
        }
    }
}

StorageRun TransferJob::storageRun(StorageUse use) {
    return {use, *activity().get(), failedItems(), stopEvent(), [this] { activity().publish(); }};
}

JobState TransferJob::brokenOffCode() {
    switch (lifecycle().state()) {
        case JobState::pausing: return JobState::paused;
        case JobState::canceling: return JobState::cancelled;
        default: return JobState::error;
    }
}

bool TransferJob::stopping() const {
    return WaitForSingleObject(stopEvent(), 0) == WAIT_OBJECT_0;
}

std::string TransferJob::instanceText() const {
    const JobActivity& record = *activity().get();
    return record.hasInstance() ? uuidText(record.instanceId) : std::string();
}

}  // namespace dorvo

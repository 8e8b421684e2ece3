#include "job/transferjob.h"

#include <atomic>
#include <exception>

#include "base/disk_room.h"
#include "base/last_error.h"
#include "base/local_time.h"
#include "base/log.h"
#include "base/singleton.h"
#include "base/text.h"
#include "base/uuid.h"
#include "httpmsg/http_names.h"
#include "settings/options.h"

namespace dorvo {
namespace {

constexpr int number(JobState state) {
    return static_cast<int>(state);
}

constexpr bool isFinal(int state) {
    return state == number(JobState::completed) || state == number(JobState::cancelled) ||
           state == number(JobState::error);
}

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
    int state = record->state;
    if (state < number(JobState::idle) || state > number(JobState::error)) {
        // Nothing else of the record is to be trusted either: the next run is a new one.
        log(LogLevel::error, "The record of job {%s} has no state of a job, but %d.\n",
            definition().id().c_str(), state);
        state = number(JobState::error);
        record->endError = ERROR_FILE_CORRUPT;
        record->state = state;
        activity().sync();
    }
    const bool underWay = state >= number(JobState::starting) && state <= number(JobState::pausing);
    if (state == number(JobState::canceling) ||
        (underWay && record->pendingState == number(JobState::canceling))) {
        endLeft(JobState::cancelled);
    } else if (underWay && record->pendingState == number(JobState::error)) {
        endLeft(JobState::error);
    } else if (underWay) {
        // A pause that its user has seen begin stays the user's.
        const bool pausing =
            state == number(JobState::pausing) || record->pendingState == number(JobState::pausing);
        if (!pausing) {
            record->pausedManually = 0;
        }
        record->state = number(JobState::paused);
        activity().sync();
    }
    std::atomic_signal_fence(std::memory_order_seq_cst);
    record->pendingState = 0;
    if (record->state == number(JobState::paused) && record->hasInstance()) {
        armResume();
    }
    return true;
}

// The storage may have dropped the run that a crash has left: here it ends now.
void TransferJob::endLeft(JobState end) {
    JobActivity& record = *activity().get();
    if (end == JobState::cancelled) {
        record.endError = ERROR_CANCELLED;
    }
    runError_ = record.endError;
    openHistory();
    writeHistory(number(end));
    closeHistory();
    tidyUp(number(end));
    record.lastRunState = number(end);
    record.lastRunTime = localTimeNow();
    record.state = number(end);
    activity().sync();
}

bool TransferJob::stop() {
    const JobActivity* const record = activity().get();
    if (record == nullptr) {
        return false;
    }
    std::unique_lock guard(stateLock_);
    switch (static_cast<JobState>(record->state)) {
        case JobState::starting:
        case JobState::running:
        case JobState::completing:
        case JobState::pausing: return requestStop();
        case JobState::paused: guard.unlock(); return cancelPausedRun();
        default: return true;
    }
}

bool TransferJob::requestStop() {
    const bool again = activity()->pendingState == number(JobState::canceling);
    if (!emit(JobCommand::stop)) {
        return false;
    }
    // After the command: a thread that was busy pausing clears what it finds, and must find this
    // at its end.
    activity()->pendingState = number(JobState::canceling);
    activity().sync();
    stopAsked();
    if (!again) {
        notify_state(number(JobState::canceling));
    }
    return true;
}

bool TransferJob::cancelPausedRun() {
    if (!activity()->hasInstance()) {
        // Parked before its first run: there is nothing to cancel.
        disarmResume();
        activity()->pausedManually = 0;
        activity()->state = number(JobState::cancelled);
        activity().sync();
        notify_state();
        return true;
    }
    cancelOnly_ = true;
    // A run that has begun has left the state `paused`, and disarmed the resume; starting counts as
    // done without a thread too.
    if (!startTask() || activity()->state == number(JobState::paused)) {
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
    activity()->state = number(cancelOnly ? JobState::canceling : JobState::starting);
    activity()->pausedManually = 0;
    activity()->endError = ERROR_SUCCESS;
    activity().sync();
    openHistory();
    int endCode = number(JobState::cancelled);
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
            endCode = number(JobState::error);
        }
    }
    finish(endCode);
    return runError_;
}

void TransferJob::finish(int endCode) {
    for (;;) {
        endCode = cleanup(endCode);
        std::lock_guard guard(stateLock_);
        JobActivity& record = *activity().get();
        if (endCode == number(JobState::paused) &&
            record.pendingState == number(JobState::canceling)) {
            endCode = number(JobState::cancelled);  // the stop came while the run wound down
            continue;
        }
        if (endCode == number(JobState::cancelled)) {
            runError_ = ERROR_CANCELLED;
        }
        record.endError = static_cast<uint32_t>(runError_);
        record.currentFileState = static_cast<uint32_t>(CurrentFileState::none);
        if (isFinal(endCode)) {
            record.resuming = 0;
            record.lastRunState = endCode;
            record.lastRunTime = localTimeNow();
            runEnds();
        }
        std::atomic_signal_fence(std::memory_order_seq_cst);
        record.state = endCode;
        std::atomic_signal_fence(std::memory_order_seq_cst);
        record.pendingState = 0;
        activity().sync();
        break;
    }
    closeStorage();
    closeHistory();
    if (endCode == number(JobState::error) && !errorNotified_) {
        notify_error(runError_);
    }
    notify_state(endCode);
    if (endCode == number(JobState::paused) && retry_) {
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

int TransferJob::cleanup(int endCode) {
    if (endCode == number(JobState::completed)) {
        endCode = complete();
    } else if (isFinal(endCode)) {
        endCode = drop(endCode);
    }
    writeHistory(endCode);
    tidyUp(endCode);
    return endCode;
}

int TransferJob::complete() {
    return completeAtStorage() ? number(JobState::completed) : endFailed(GetLastError());
}

int TransferJob::endFailed(unsigned long code) {
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
        return number(JobState::completed);
    }
    logRetry("end", code);
    runError_ = code;
    notify_error(code);
    errorNotified_ = true;
    // What was broken off or went wrong has not been refused: the resumed run ends again.
    if (action != FailureAction::fail) {
        retry_ = true;
        return number(JobState::paused);
    }
    return drop(number(JobState::error));
}

// Whatever a crash leaves then, the run does not go on: the storage may have dropped it.
int TransferJob::drop(int endCode) {
    if (atStorage_ && endCode == number(JobState::error)) {
        activity()->endError = static_cast<uint32_t>(runError_);
        std::atomic_signal_fence(std::memory_order_seq_cst);
        activity()->pendingState = endCode;
        activity().sync();
    }
    if (atStorage_ && !dropAtStorage(endCode)) {
        logRetry("cancel", GetLastError());
    }
    atStorage_ = false;
    if (endCode == number(JobState::completed)) {
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
    if (activity()->state != number(JobState::pausing)) {
        pause(false);
        if (pollEvent(0)) {
            activity()->state = number(JobState::pausing);
        }
    }
}

StorageRun TransferJob::storageRun(StorageUse use) {
    return {use, *activity().get(), failedItems(), stopEvent(), [this] { activity().publish(); }};
}

int TransferJob::brokenOffCode() const {
    switch (static_cast<JobState>(state())) {
        case JobState::pausing: return number(JobState::paused);
        case JobState::canceling: return number(JobState::cancelled);
        default: return number(JobState::error);
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

// How a run ends: at its storage, in the history, on disk, on record_.
#include <algorithm>
#include <limits>

#include "base/error_codes.h"
#include "base/last_error.h"
#include "base/local_time.h"
#include "base/log.h"
#include "base/paths.h"
#include "base/text.h"
#include "httpmsg/http_names.h"
#include "job/runtotals.h"
#include "job/transfer.h"
#include "record/jobhistory.h"

namespace dorvo {

void Transfer::finish(JobState endCode) {
    for (;;) {
        endCode = cleanup_(endCode);
        std::lock_guard guard(job_.stateLock_);
        if (endCode == JobState::paused && job_.lifecycle().pending() == JobState::canceling) {
            // The stop came while the run wound down. On record before the storage hears of it: the
            // run does not go on then, whoever dies meanwhile.
            endCode = JobState::cancelled;
            job_.lifecycle().move(JobState::canceling, Lifecycle::Tell::nobody);
            continue;
        }
        if (endCode == JobState::cancelled) {
            runError_ = ERROR_CANCELLED;
        }
        if (isFinal(endCode) && runEnds_) {
            runEnds_();
        }
        job_.lifecycle().end(endCode, static_cast<uint32_t>(runError_));
        break;
    }
    closeStorage();
    closeHistory();
    if (endCode == JobState::error && !errorNotified_) {
        job_.notify_error(runError_);
    }
    job_.notify_state(endCode);
    if (endCode == JobState::paused && retry_) {
        resumeLater();
    }
}

void Transfer::resumeLater() {
    const uint64_t waitMs = memory_.backoff.afterFailureAt(
        {record_.totalSize, record_.sourcePosition, record_.acceptedBlocks, record_.fileOffset});
    if (job_.armResume(waitMs)) {
        log(LogLevel::information, "Job {%s} tries again in %Q seconds.\n", id_, waitMs / 1000);
    }
}

JobState Transfer::cleanup(JobState endCode) {
    if (endCode == JobState::completed) {
        endCode = complete();
    } else if (isFinal(endCode)) {
        endCode = drop(endCode);
    }
    writeHistory(endCode);
    tidyUp(endCode);
    return endCode;
}

JobState Transfer::complete() {
    return completeAtStorage() ? JobState::completed : endFailed(GetLastError());
}

JobState Transfer::endFailed(unsigned long code) {
    Failure failure = failureOf(code);
    failure.stopping = false;  // a pending stop is seen to afterwards
    memory_.endFailures = withOneMore(memory_.endFailures, failure);
    const FailureAction action = endAction(failure, memory_.endFailures);
    if (action == FailureAction::settle) {
        log(LogLevel::warning,
            "Job {%s, %s} is completed, but its storage does not take the history of the run, "
            "error-code = %d, %s.\n",
            id_, toUtf8(job_.definition().name()), withoutHttpMark(static_cast<uint32_t>(code)),
            reasonText(code));
        return JobState::completed;
    }
    logRetry("end", code);
    tellFailure(code);
    // What was broken off or went wrong has not been refused: the resumed run ends again.
    if (action != FailureAction::fail) {
        retry_ = true;
        return JobState::paused;
    }
    return drop(JobState::error);
}

// Whatever a crash leaves then, the run does not go on: the storage may have dropped it.
JobState Transfer::drop(JobState endCode) {
    if (atStorage_ && endCode == JobState::error) {
        record_.endError = static_cast<uint32_t>(runError_);
        job_.lifecycle().pend(endCode);
    }
    const bool told = atStorage_ && dropAtStorage(endCode);
    if (atStorage_ && !told) {
        logRetry("cancel", GetLastError());
    }
    atStorage_ = false;
    if (endCode == JobState::completed) {
        // And to who comes after a process that dies now it is one that has to end: neither failed
        // nor cancelled.
        runError_ = ERROR_SUCCESS;
        record_.endError = ERROR_SUCCESS;
        job_.lifecycle().move(JobState::completing, Lifecycle::Tell::nobody);
        job_.lifecycle().pend(JobState::none);
        log(LogLevel::information, "Job {%s} was to be dropped, but has been completed before.\n",
            id_);
    }
    if (told) {
        forgetDrop();
    }
    return endCode;
}

void Transfer::logRetry(const char* verb, unsigned long code) const {
    const std::string name = toUtf8(job_.definition().name());
    if (isHttpStatus(static_cast<uint32_t>(code))) {
        const int status = static_cast<int>(withoutHttpMark(static_cast<uint32_t>(code)));
        log(LogLevel::error, "Failed to %s job {%s, %s}, error-code = %d, %s, retrying latter.\n",
            verb, id_, name, status, http_status_string(status));
        return;
    }
    SetLastError(code);
    log(LogLevel::error, "Failed to %s job {%s, %s}, error-code = %d, %m, retrying latter.\n", verb,
        id_, name, code);
}

// On the thread that takes the job up, while it has no other.
void Transfer::endLeft(JobState end) {
    runError_ = end == JobState::cancelled ? DWORD{ERROR_CANCELLED} : record_.endError;
    openHistory();
    writeHistory(end);
    closeHistory();
    tidyUp(end);
    job_.lifecycle().end(end, static_cast<uint32_t>(runError_));
}

void Transfer::openHistory() {
    std::wstring directory;
    jobDirectory(id_, directory);
    const std::string instance = instanceText();
    history_ = std::make_unique<JobHistoryInfo>(toUtf8(jobHistoryInfoPath(directory, instance)));
    failed_ =
        std::make_unique<FailedItems>(toUtf8(jobHistoryErrorPath(directory, instance)), record_);
}

void Transfer::closeHistory() {
    history_.reset();
    failed_.reset();
}

const json_spirit::Object& Transfer::historyAt(JobState endCode) {
    JobHistoryInfo& info = *history_;
    info.instanceId(instanceText().c_str());
    info.type(words_.kind);
    // None yet of one that could not be taken up.
    info.starttime(
        toFileTime(record_.startTime == 0 ? utcTimeNow() : localToUtc(record_.startTime)));
    info.endtime(toFileTime(utcTimeNow()));
    // A run that did not come to its end tells what it has done, not what it had ahead of it.
    const bool whole = endCode == JobState::completed;
    info.totalsize(static_cast<int64_t>(whole ? record_.totalSize
                                              : std::min(record_.doneSize, record_.totalSize)));
    info.filescount(whole ? record_.fileCount : std::min(record_.fileIndex, record_.fileCount));
    info.state(jobStateToString(endCode));
    info.speed(static_cast<int32_t>(
        std::min<uint64_t>(record_.AverageSpeed(), std::numeric_limits<int32_t>::max())));
    return info.values();
}

void Transfer::writeHistory(JobState endCode) {
    std::wstring directory;
    if (instanceText().empty() || !jobDirectory(id_, directory)) {
        return;
    }
    historyAt(endCode);
    if (!history_->save() || !failed_->save()) {
        log(LogLevel::error, "Failed to write the history of job {%s}.\n", id_);
    }
    countFailedTotals(directory, directory + L"\\src", failed_->list());
    trimJobHistory(directory, instanceText());
}

}  // namespace dorvo

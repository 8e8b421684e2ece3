#include "job/transfer.h"

#include <exception>

#include "base/last_error.h"
#include "base/local_time.h"
#include "base/log.h"
#include "base/paths.h"
#include "base/sharing_retry.h"
#include "base/singleton.h"
#include "base/text.h"
#include "job/runtotals.h"
#include "record/jobwait.h"
#include "settings/options.h"
#include "storage/itemtemppath.h"
#include "storage/refusalwords.h"

namespace dorvo {

TransferServices TransferServices::whole() const {
    TransferServices all = *this;
    if (!all.waitForServer) {
        all.waitForServer = [] {
            return ATL::CComSingleton<OptionsImpl, ATL::CComAutoCriticalSection>::instance()
                ->waitForServer();
        };
    }
    if (!all.roomAt) {
        all.roomAt = diskRoom;
    }
    if (!all.fits) {
        all.fits = [](const DiskNeed& one, const DiskNeed& other) {
            return fitsOnDisk(one, other);
        };
    }
    return all;
}

// cppcheck-suppress passedByValue; parts of it are moved from
Transfer::Transfer(Context context, const Words& words)
    : record_(*context.job.activity().get()),
      progress_(&record_),
      job_(context.job),
      services_(context.services),
      memory_(context.memory),
      cleanup_(std::move(context.cleanup)),
      runEnds_(std::move(context.runEnds)),
      words_(words),
      id_(job_.definition().id()),
      runPausesTakenBack_(job_.pausesTakenBack_) {}

unsigned long Transfer::carryOut() {
    job_.disarmResume();
    if (record_.resuming == 0) {
        memory_.backoff.reset();
        memory_.endFailures = {};
    }
    const bool dropOnly = job_.dropOnly_.exchange(false);
    // Observers hear of it once the starter is released. First of all: a paused run that is not
    // the user's would go on in the next process.
    job_.lifecycle().move(dropOnly ? JobState::canceling : JobState::starting,
                          Lifecycle::Tell::nobody);
    record_.pausedManually = 0;
    record_.endError = ERROR_SUCCESS;
    openHistory();
    JobState endCode = JobState::cancelled;
    if (dropOnly) {
        // A server that stalls has as much time as with a running job.
        job_.emit(JobCommand::stop);
        job_.setStartEvent();
        job_.notify_state();
        atStorage_ = true;
    } else {
        try {
            endCode = run();
        } catch (const std::exception& error) {
            log(LogLevel::error, "Run of job {%s} failed, %s.\n", id_, error.what());
            runError_ = ERROR_INTERNAL_ERROR;
            endCode = JobState::error;
        }
        reader_.close();
        letGo();
    }
    finish(endCode);
    return runError_;
}

bool Transfer::begin(LogText<> released) {
    if (!job_.setStartEvent()) {
        LastErrorGuard keep;
        log(LogLevel::error, "Failed to set start event, %d, %m.\n", keep.error());
        return fail(keep.error());
    }
    log(LogLevel::debug, released);
    job_.notify_state();
    if (!jobDirectory(id_, directory_)) {
        return fail(GetLastError());
    }
    list_ = directory_ + L"\\src";
    return carryOn();
}

bool Transfer::takeUp() {
    // Without a start time nothing of the run was ever recorded, whatever lies in the folder.
    resumed_ = record_.resuming != 0 && record_.startTime != 0;
    if (resumed_) {
        return findList();
    }
    if (!forgetList()) {
        return failUnlessHeld(GetLastError());
    }
    record_.startTime = localTimeNow();
    return true;
}

// A list that cannot be looked at for now is not lost: to make it anew is to send everything again.
bool Transfer::findList() {
    SharingRetry retry;
    do {
        listed_ = loadRunTotals(directory_, totals_) && findPlace();
    } while (!listed_ && retry.again());
    const LastErrorGuard keep;
    if (listed_ || keep.error() == ERROR_FILE_NOT_FOUND || keep.error() == ERROR_PATH_NOT_FOUND ||
        keep.error() == ERROR_INVALID_DATA) {
        return true;
    }
    log(LogLevel::error, "Failed to read the source list of job {%s}, error-code = %d, %m.\n", id_,
        keep.error());
    return pause(keep.error());
}

// Once: the place does not move before the items begin.
bool Transfer::findPlace() {
    JobActivitySourceReader reader;
    if (!reader.open(list_, static_cast<int64_t>(record_.sourcePosition))) {
        return false;
    }
    atEnd_ = reader.next() == tagSetEnd && reader.next() == 0;
    return true;
}

bool Transfer::beginList() {
    if (!forgetList()) {
        return failUnlessHeld(GetLastError());
    }
    if (!failed_->clear()) {
        LastErrorGuard keep;
        log(LogLevel::error, "Failed to clear the failed items of job {%s}, error-code = %d, %m.\n",
            id_, keep.error());
        return failUnlessHeld(keep.error());
    }
    return true;
}

bool Transfer::endList(const SourceTotals& listed, const SourceTotals& walked) {
    record_.fileCount = listed.files;
    record_.directoryCount = listed.directories;
    record_.totalSize = listed.size;
    totals_ = walked;
    return saveRunTotals(directory_, walked);
}

void Transfer::addFailed(const std::wstring& path, unsigned long code, const std::string& reason) {
    if (!failed_->add(path.c_str(), code, reason) && unrecorded_ == ERROR_SUCCESS) {
        unrecorded_ = GetLastError();
    }
}

bool Transfer::allRecorded() const {
    SetLastError(unrecorded_);
    return unrecorded_ == ERROR_SUCCESS;
}

// What is on record of a list goes with it. The totals say that it is whole: with them, one that is
// broken off after them would be taken for it.
bool Transfer::forgetList() {
    if (!removeRunTotals(directory_)) {
        return logFailed("Failed to delete the totals of job {%s}, error-code = %d, %m.\n", id_,
                         GetLastError());
    }
    DeleteFileW(longPath(list_).c_str());
    progress_.restart();
    listed_ = false;
    atEnd_ = false;
    return true;
}

bool Transfer::startStorage() {
    if (storageOpen_) {
        return true;
    }
    if (const DWORD unread = failed_->readError(); unread != ERROR_SUCCESS) {
        log(LogLevel::error, "Failed to read the failed items of job {%s}, error-code = %d, %s.\n",
            id_, unread, reasonText(unread));
        return failUnlessHeld(unread);
    }
    if (!opensToEnd() && isAtEndOfList()) {
        return storageOpen_ = true;
    }
    const std::wstring temporary = itemTempFolder(id_);
    if (!createDirectories(temporary)) {
        LastErrorGuard keep;
        log(LogLevel::error, "Failed to create folder {%s} for packages, error-code = %d, %m.\n",
            toUtf8(temporary), keep.error());
        return failOrPause(keep.error());
    }
    if (!openStorage()) {
        LastErrorGuard keep;
        log(LogLevel::error, "Start job failed.\n");
        return failOrPause(keep.error());
    }
    storageOpen_ = true;
    return true;
}

bool Transfer::startItems(LogText<> begun) {
    if (!startStorage()) {
        return false;
    }
    log(LogLevel::debug, "Job started.\n");
    if (!carryOn()) {
        return false;
    }
    job_.lifecycle().move(JobState::running);
    log(LogLevel::information, begun);
    return true;
}

bool Transfer::fail(unsigned long code) {
    runError_ = code;
    return false;
}

bool Transfer::failUnlessHeld(unsigned long code) {
    return isHeld(code) ? pause(code) : fail(code);
}

bool Transfer::refuse(unsigned long code) {
    if (isCancelled(failureOf(code))) {
        if (!carryOn()) {
            return false;
        }
        if (parkIfPauseIsTakenBack()) {
            return false;
        }
    }
    tellFailure(code);
    return false;
}

bool Transfer::parkIfPauseIsTakenBack() {
    if (job_.pausesTakenBack_ == runPausesTakenBack_) {
        return false;
    }
    park();
    return true;
}

bool Transfer::failOrPause(unsigned long code) {
    const Failure failure = failureOf(code);
    FailureAction action = stepFailure(failure);
    if (isAtEndOfList()) {
        EndFailures& failures = memory_.endFailures;
        if (isRefusal(failure.code)) {  // a service that is away has refused nothing
            failures = withOneMore(failures, failure);
        }
        action = startToEndFailure(failure, failures);
    }
    if (action != FailureAction::pause) {
        return refuse(code);
    }
    return pause(code);
}

bool Transfer::pause(unsigned long code) {
    tellFailure(code);
    park();
    return false;
}

// What the service has said stands first: who is told looks for it.
void Transfer::tellFailure(unsigned long code) {
    runError_ = code;
    if (const auto marked = static_cast<uint32_t>(code); isHttpStatus(marked)) {
        saveWaitWords(id_, marked, refusalWords(marked));
    }
    job_.notify_error(code);
    errorNotified_ = true;
}

bool Transfer::failOrWait(unsigned long code) {
    return failureOf(code).waitForServer ? failOrPause(code) : refuse(code);
}

// Whoever takes the pause back wants the run to go on: that is what it is going to do.
void Transfer::park() {
    retry_ = true;
    if (job_.lifecycle().state() != JobState::pausing) {
        job_.pause(false);
        if (carryOn()) {
            job_.lifecycle().move(JobState::pausing, Lifecycle::Tell::nobody);
        }
    }
}

JobState Transfer::brokenOffCode() {
    switch (job_.lifecycle().state()) {
        case JobState::pausing: return JobState::paused;
        case JobState::canceling: return JobState::cancelled;
        default: return JobState::error;
    }
}

bool Transfer::stopping() const {
    return WaitForSingleObject(job_.stopEvent(), 0) == WAIT_OBJECT_0;
}

Failure Transfer::failureOf(unsigned long code) {
    return {static_cast<uint32_t>(code), job_.is_network_error(code), stopping(),
            services_.waitForServer()};
}

StorageRun Transfer::storageRun(StorageUse use) {
    return {use, record_, *failed_, job_.stopEvent(), [this] { publish(); }};
}

}  // namespace dorvo

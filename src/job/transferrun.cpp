#include "job/transferrun.h"

#include "base/last_error.h"
#include "base/local_time.h"
#include "base/log.h"
#include "base/paths.h"
#include "base/sharing_retry.h"
#include "base/text.h"
#include "job/runtotals.h"
#include "storage/itemtemppath.h"

namespace dorvo {

TransferRun::TransferRun(TransferJob& job)
    : transferJob_(job), record_(*job.activity().get()), pausesTakenBack_(job.pausesTakenBack()) {}

bool TransferRun::begin(LogText<> released) {
    if (!transferJob_.setStartEvent()) {
        LastErrorGuard keep;
        log(LogLevel::error, "Failed to set start event, %d, %m.\n",
            static_cast<int>(keep.error()));
        return fail(keep.error());
    }
    log(LogLevel::debug, released);
    transferJob_.notify_state();
    if (!jobDirectory(transferJob_.definition().id(), directory_)) {
        return fail(GetLastError());
    }
    list_ = directory_ + L"\\src";
    return carryOn();
}

bool TransferRun::takeUp() {
    // Without a start time nothing of the run was ever recorded, whatever lies in the folder.
    resumed_ = record_.resuming != 0 && record_.startTime != 0;
    if (resumed_) {
        return findList();
    }
    forgetList();
    record_.startTime = localTimeNow();
    return true;
}

// A list that cannot be looked at for now is not lost: to make it anew is to send everything again.
bool TransferRun::findList() {
    SharingRetry retry;
    do {
        listed_ = loadRunTotals(directory_, transferJob_.totals_) && findPlace();
    } while (!listed_ && retry.again());
    const LastErrorGuard keep;
    if (listed_ || keep.error() == ERROR_FILE_NOT_FOUND || keep.error() == ERROR_PATH_NOT_FOUND ||
        keep.error() == ERROR_INVALID_DATA) {
        return true;
    }
    log(LogLevel::error, "Failed to read the source list of job {%s}, error-code = %d, %m.\n",
        transferJob_.definition().id().c_str(), static_cast<int>(keep.error()));
    return pause(keep.error());
}

// Once: the place does not move before the items begin.
bool TransferRun::findPlace() {
    JobActivitySourceReader reader;
    if (!reader.open(list_, static_cast<int64_t>(record_.sourcePosition))) {
        return false;
    }
    atEnd_ = reader.next() == tagSetEnd && reader.next() == 0;
    return true;
}

bool TransferRun::beginList() {
    forgetList();
    if (!transferJob_.failed_->clear()) {
        LastErrorGuard keep;
        log(LogLevel::error, "Failed to clear the failed items of job {%s}, error-code = %d, %m.\n",
            transferJob_.definition().id().c_str(), static_cast<int>(keep.error()));
        return failUnlessHeld(keep.error());
    }
    return true;
}

bool TransferRun::endList(const SourceTotals& listed, const SourceTotals& walked) {
    record_.fileCount = listed.files;
    record_.directoryCount = listed.directories;
    record_.totalSize = listed.size;
    transferJob_.totals_ = walked;
    return saveRunTotals(directory_, walked);
}

void TransferRun::addFailed(const std::wstring& path, unsigned long code,
                            const std::string& reason) {
    if (!transferJob_.failed_->add(path.c_str(), code, reason) && unrecorded_ == ERROR_SUCCESS) {
        unrecorded_ = GetLastError();
    }
}

bool TransferRun::allRecorded() const {
    SetLastError(unrecorded_);
    return unrecorded_ == ERROR_SUCCESS;
}

// What is on record of a list goes with it.
void TransferRun::forgetList() {
    removeRunTotals(directory_);
    DeleteFileW(longPath(list_).c_str());
    ItemProgress(&record_).restart();
    listed_ = false;
    atEnd_ = false;
}

bool TransferRun::openStorage() {
    if (storageOpen_) {
        return true;
    }
    if (const DWORD unread = transferJob_.failed_->readError(); unread != ERROR_SUCCESS) {
        log(LogLevel::error, "Failed to read the failed items of job {%s}, error-code = %d, %s.\n",
            transferJob_.definition().id().c_str(), static_cast<int>(unread),
            transferJob_.reasonText(unread).c_str());
        return failUnlessHeld(unread);
    }
    if (!transferJob_.opensToEnd() && isAtEndOfList()) {
        return storageOpen_ = true;
    }
    const std::wstring temporary = itemTempFolder(transferJob_.definition().id());
    if (!createDirectories(temporary)) {
        LastErrorGuard keep;
        log(LogLevel::error, "Failed to create folder {%s} for packages, error-code = %d, %m.\n",
            toUtf8(temporary).c_str(), static_cast<int>(keep.error()));
        return failOrPause(keep.error());
    }
    if (!transferJob_.openStorage()) {
        LastErrorGuard keep;
        log(LogLevel::error, "Start job failed.\n");
        return failOrPause(keep.error());
    }
    storageOpen_ = true;
    return true;
}

bool TransferRun::startStorage(LogText<> begun) {
    if (!openStorage()) {
        return false;
    }
    log(LogLevel::debug, "Job started.\n");
    if (!carryOn()) {
        return false;
    }
    transferJob_.lifecycle().move(JobState::running);
    log(LogLevel::information, begun);
    return true;
}

bool TransferRun::fail(unsigned long code) {
    transferJob_.runError_ = code;
    return false;
}

bool TransferRun::failUnlessHeld(unsigned long code) {
    return isHeld(code) ? pause(code) : fail(code);
}

bool TransferRun::refuse(unsigned long code) {
    if (isCancelled(transferJob_.failureOf(code))) {
        if (!carryOn()) {
            return false;
        }
        if (parkIfPauseIsTakenBack()) {
            return false;
        }
    }
    transferJob_.notify_error(code);
    transferJob_.errorNotified_ = true;
    return fail(code);
}

bool TransferRun::parkIfPauseIsTakenBack() {
    if (transferJob_.pausesTakenBack() == pausesTakenBack_) {
        return false;
    }
    transferJob_.park();
    return true;
}

bool TransferRun::failOrPause(unsigned long code) {
    const Failure failure = transferJob_.failureOf(code);
    FailureAction action = runFailure(failure);
    if (isAtEndOfList()) {
        EndFailures& failures = transferJob_.endFailures_;
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

bool TransferRun::pause(unsigned long code) {
    transferJob_.pauseForRetry(code);
    return false;
}

bool TransferRun::failOrWait(unsigned long code) {
    return transferJob_.failureOf(code).waitForServer ? failOrPause(code) : refuse(code);
}

bool TransferRun::carryOn() {
    return transferJob_.pollEvent(0);
}

JobState TransferRun::endCode() const {
    return transferJob_.brokenOffCode();
}

}  // namespace dorvo

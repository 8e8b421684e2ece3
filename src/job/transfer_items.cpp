// What becomes of the items of a run, one after the other.

#include "base/error_codes.h"
#include "base/files.h"
#include "base/last_error.h"
#include "base/log.h"
#include "base/text.h"
#include "httpmsg/http_names.h"
#include "job/transfer.h"
#include "record/sourcerecord.h"

namespace dorvo {

JobState Transfer::processItems() {
    Step last = Step::next;
    for (;;) {
        const bool goesOn = carryOn();
        if (!advance(last, goesOn)) {
            fail(GetLastError());
            return brokenOffCode();
        }
        if (!goesOn) {
            return brokenOffCode();
        }
        itemPausesTakenBack_ = job_.pausesTakenBack_;
        last = step(reader_.next());
        if (last == Step::ended || (last == Step::finished && !allThrough())) {
            return brokenOffCode();
        }
        if (last == Step::finished) {
            job_.lifecycle().move(JobState::completing);
            return JobState::completed;
        }
    }
}

// An item that a stop has broken off is the next run's first, and this one's next where the pause
// was taken back meanwhile: nothing says that it is stored.
bool Transfer::advance(Step last, bool goesOn) {
    if (last != Step::brokenOff) {
        return takePosition();
    }
    return !goesOn || reader_.seek(static_cast<int64_t>(record_.sourcePosition));
}

bool Transfer::takePosition() {
    // The end of a set stays the position, so that a run which only has to end finds it again.
    if (setEnded_) {
        return true;
    }
    const int64_t position = reader_.offset();
    if (position < 0) {
        return false;
    }
    if (fileDone_) {
        fileDone_ = false;
        progress_.through(static_cast<uint64_t>(position), doneBytes_, keptFile_);
    } else {
        progress_.at(static_cast<uint64_t>(position));
    }
    return true;
}

Transfer::Step Transfer::step(uint32_t tag) {
    switch (tag) {
        case tagSetStart:
            setEnded_ = false;
            log(LogLevel::information, words_.setStart);
            return Step::next;
        case tagSetEnd:
            setEnded_ = true;
            log(LogLevel::information, words_.setEnd);
            return Step::next;
        case tagVolume: log(LogLevel::information, words_.volume); return volume();
        case tagFile: return item(false);
        case tagDirectory: return item(true);
        case 0: return setEnded_ ? Step::finished : damaged();
        default: return Step::next;
    }
}

Transfer::Step Transfer::volume() {
    std::wstring path;
    if (!reader_.volume(path)) {
        return damaged();
    }
    enterVolume(path);
    return Step::next;
}

Transfer::Step Transfer::item(bool directory) {
    Item item;
    uint64_t value = 0;
    if (!reader_.entry(item.path, item.data, value)) {
        return damaged();
    }
    item.number = static_cast<uint32_t>(value);
    item.directory = directory;
    progress_.show(item.path);
    publish();
    reason_.clear();
    keptFile_ = false;
    const bool transferred = transfer(item);
    const DWORD code = GetLastError();
    if (!directory) {
        fileDone_ = true;
        doneBytes_ = sizeOf(item.data);
    }
    return transferred ? Step::next : itemFailed(item, code);
}

Transfer::Step Transfer::itemFailed(const Item& item, unsigned long code) {
    const Failure failure = failureOf(code);
    if (code == ERROR_CANCELLED && !failure.stopping &&
        job_.pausesTakenBack_ == itemPausesTakenBack_) {
        return itemFailed(item, ERROR_OPERATION_ABORTED);  // by nobody here: no stop will repeat it
    }
    switch (itemFailure(failure)) {
        case FailureAction::leave: return Step::brokenOff;
        case FailureAction::pause: return ended(pause(code));
        case FailureAction::record:
        case FailureAction::fail:
        case FailureAction::settle: break;
    }
    if (passes(item, code)) {
        return ended(pause(code));
    }
    const auto marked = static_cast<uint32_t>(code);
    if (reason_.empty() && marked == errorLostBytes) {
        reason_ = "the storage has lost bytes of it, or they are damaged there";
    } else if (reason_.empty() && isHttpStatus(marked)) {
        reason_ = http_status_string(static_cast<int>(withoutHttpMark(marked)));
    }
    if (!failed_->add(item.path.c_str(), code, reason_)) {
        LastErrorGuard keep;
        log(LogLevel::error, "Failed to record the failed item {%s}, error-code = %d, %m.\n",
            toUtf8(item.path), keep.error());
        return ended(isPassing(keep.error()) ? pause(keep.error()) : fail(keep.error()));
    }
    givenUp(item);
    return Step::next;
}

Transfer::Step Transfer::damaged() {
    log(LogLevel::error, "The source list of job {%s} is damaged at {%Q}.\n", id_,
        record_.sourcePosition);
    return ended(fail(ERROR_FILE_CORRUPT));
}

}  // namespace dorvo

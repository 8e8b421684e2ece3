#include "job/transferitems.h"

#include "base/http_error.h"
#include "base/last_error.h"
#include "base/log.h"
#include "base/text.h"
#include "httpmsg/http_names.h"
#include "record/sourcerecord.h"

namespace dorvo {

TransferItems::TransferItems(TransferJob& job, JobActivitySourceReader& reader, const Lines& lines)
    : record_(*job.activity().get()),
      progress_(&record_),
      job_(job),
      reader_(reader),
      lines_(lines) {}

JobState TransferItems::process() {
    Step last = Step::next;
    for (;;) {
        const bool carryOn = job_.pollEvent(0);
        if (!advance(last, carryOn)) {
            fail(GetLastError());
            return job_.brokenOffCode();
        }
        if (!carryOn) {
            return job_.brokenOffCode();
        }
        pausesTakenBack_ = job_.pausesTakenBack();
        last = step(reader_.next());
        if (last == Step::ended || (last == Step::finished && !allThrough())) {
            return job_.brokenOffCode();
        }
        if (last == Step::finished) {
            job_.lifecycle().move(JobState::completing);
            return JobState::completed;
        }
    }
}

// An item that a stop has broken off is the next run's first, and this one's next where the pause
// was taken back meanwhile: nothing says that it is stored.
bool TransferItems::advance(Step last, bool carryOn) {
    if (last != Step::brokenOff) {
        return takePosition();
    }
    return !carryOn || reader_.seek(static_cast<int64_t>(record_.sourcePosition));
}

bool TransferItems::takePosition() {
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

TransferItems::Step TransferItems::step(uint32_t tag) {
    switch (tag) {
        case tagSetStart:
            setEnded_ = false;
            log(LogLevel::information, lines_.setStart);
            return Step::next;
        case tagSetEnd:
            setEnded_ = true;
            log(LogLevel::information, lines_.setEnd);
            return Step::next;
        case tagVolume: log(LogLevel::information, lines_.volume); return volume();
        case tagFile: return item(false);
        case tagDirectory: return item(true);
        case 0: return setEnded_ ? Step::finished : damaged();
        default: return Step::next;
    }
}

TransferItems::Step TransferItems::volume() {
    std::wstring path;
    if (!reader_.volume(path)) {
        return damaged();
    }
    enterVolume(path);
    return Step::next;
}

TransferItems::Step TransferItems::item(bool directory) {
    Item item;
    uint64_t value = 0;
    if (!reader_.entry(item.path, item.data, value)) {
        return damaged();
    }
    item.number = static_cast<uint32_t>(value);
    item.directory = directory;
    progress_.show(item.path);
    job_.activity().publish();
    reason_.clear();
    keptFile_ = false;
    const bool transferred = transfer(item);
    const DWORD code = GetLastError();
    if (!directory) {
        fileDone_ = true;
        doneBytes_ = uint64_t{item.data.nFileSizeHigh} << 32 | item.data.nFileSizeLow;
    }
    return transferred ? Step::next : itemFailed(item, code);
}

TransferItems::Step TransferItems::itemFailed(const Item& item, unsigned long code) {
    const Failure failure = job_.failureOf(code);
    if (code == ERROR_CANCELLED && !failure.stopping &&
        job_.pausesTakenBack() == pausesTakenBack_) {
        return itemFailed(item, ERROR_OPERATION_ABORTED);  // by nobody here: no stop will repeat it
    }
    switch (itemFailure(failure)) {
        case FailureAction::leave: return Step::brokenOff;
        case FailureAction::pause: return pause(code);
        case FailureAction::record:
        case FailureAction::fail:
        case FailureAction::settle: break;
    }
    if (passes(item, code)) {
        return pause(code);
    }
    const auto marked = static_cast<uint32_t>(code);
    if (reason_.empty() && marked == errorLostBytes) {
        reason_ = "the storage has lost bytes of it, or they are damaged there";
    } else if (reason_.empty() && isHttpStatus(marked)) {
        reason_ = http_status_string(static_cast<int>(withoutHttpMark(marked)));
    }
    if (!job_.recordError(item.path.c_str(), code, reason_)) {
        LastErrorGuard keep;
        log(LogLevel::error, "Failed to record the failed item {%s}, error-code = %d, %m.\n",
            toUtf8(item.path).c_str(), static_cast<int>(keep.error()));
        return isPassing(keep.error()) ? pause(keep.error()) : fail(keep.error());
    }
    return Step::next;
}

TransferItems::Step TransferItems::pause(unsigned long code) {
    job_.pauseForRetry(code);
    return Step::ended;
}

TransferItems::Step TransferItems::damaged() {
    log(LogLevel::error, "The source list of job {%s} is damaged at {%Q}.\n",
        job_.definition().id().c_str(), record_.sourcePosition);
    return fail(ERROR_FILE_CORRUPT);
}

TransferItems::Step TransferItems::fail(unsigned long code) {
    job_.runError_ = code;
    return Step::ended;
}

}  // namespace dorvo

#include "job/backupitems.h"

#include <atomic>

#include "base/http_error.h"
#include "base/last_error.h"
#include "base/log.h"
#include "base/rm_rf.h"
#include "base/text.h"
#include "httpmsg/http_names.h"
#include "job/activity/sourcerecord.h"
#include "job/source/volumemap.h"
#include "storage/itemtemppath.h"

namespace dorvo {

BackupItems::BackupItems(BackupJob& job, JobActivitySourceReader& reader)
    : job_(job),
      record_(*job.activity().get()),
      reader_(reader),
      temporary_(itemTempFolder(job.definition().id())) {
    useVolume(record_.volumeIndex);
}

int BackupItems::store() {
    for (;;) {
        // Before the position moves: an item that a pause has broken off is the next run's first.
        if (!job_.pollEvent(0)) {
            return endCode();
        }
        if (!takePosition()) {
            fail(GetLastError());
            return endCode();
        }
        switch (step(reader_.next())) {
            case Step::next: break;
            case Step::finished:
                record_.state = static_cast<int>(JobState::completing);
                job_.activity().sync();
                job_.notify_state();
                return static_cast<int>(JobState::completed);
            case Step::ended: return endCode();
        }
    }
}

bool BackupItems::takePosition() {
    // The end of a set stays the position, so that a run which only has to end finds it again.
    if (setEnded_) {
        return true;
    }
    const int64_t position = reader_.offset();
    if (position < 0) {
        return false;
    }
    record_.sourcePosition = static_cast<uint64_t>(position);
    std::atomic_signal_fence(std::memory_order_seq_cst);
    if (fileDone_) {
        fileDone_ = false;
        record_.fileOffset = 0;
        record_.fileSize = 0;
        record_.doneSize += doneBytes_;
        record_.fileIndex += 1;
    }
    return true;
}

BackupItems::Step BackupItems::step(uint32_t tag) {
    switch (tag) {
        case tagSetStart:
            setEnded_ = false;
            log(LogLevel::information, "Start source files/directories set.\n");
            return Step::next;
        case tagSetEnd:
            setEnded_ = true;
            log(LogLevel::information, "End source files/directories set.\n");
            return Step::next;
        case tagVolume:
            log(LogLevel::information, "Skip backup volumn item.\n");
            return enterVolume();
        case tagFile: return storeItem(false);
        case tagDirectory: return storeItem(true);
        case 0: return setEnded_ ? Step::finished : damaged();
        default: return Step::next;
    }
}

BackupItems::Step BackupItems::enterVolume() {
    std::wstring path;
    if (!reader_.volume(path)) {
        return damaged();
    }
    const auto found = job_.volumes_.find(path);
    volume_ = found == job_.volumes_.end() ? nullptr : found->second.get();
    record_.volumeIndex = volume_ == nullptr ? 0 : volume_->index;
    return Step::next;
}

BackupItems::Step BackupItems::storeItem(bool directory) {
    Item item;
    uint64_t value = 0;
    if (!reader_.entry(item.path, item.data, value)) {
        return damaged();
    }
    item.number = static_cast<uint32_t>(value);
    record_.currentFilePath(item.path);
    const std::wstring source = directory ? std::wstring() : readFrom(item.path);
    const bool stored = job_.storage_->backup(item.path.c_str(), item.data, item.number,
                                              source.empty() ? nullptr : source.c_str());
    const DWORD code = GetLastError();
    if (!directory) {
        if (const std::wstring package = itemTempPath(temporary_, item.number); !package.empty()) {
            rm_rf(package, true);
        }
        fileDone_ = true;
        doneBytes_ = uint64_t{item.data.nFileSizeHigh} << 32 | item.data.nFileSizeLow;
    }
    return stored ? Step::next : itemFailed(item, code);
}

BackupItems::Step BackupItems::itemFailed(const Item& item, unsigned long code) {
    switch (itemFailure(job_.failureOf(code))) {
        case FailureAction::leave: return Step::next;
        case FailureAction::pause: job_.pauseForRetry(code); return Step::ended;
        case FailureAction::record:
        case FailureAction::fail: break;
    }
    const auto marked = static_cast<uint32_t>(code);
    const std::string reason = isHttpStatus(marked)
                                   ? http_status_string(static_cast<int>(withoutHttpMark(marked)))
                                   : std::string();
    if (!job_.storage_->recordError(item.path.c_str(), code, reason)) {
        LastErrorGuard keep;
        log(LogLevel::error, "Failed to record the failed item {%s}, error-code = %d, %m.\n",
            toUtf8(item.path).c_str(), static_cast<int>(keep.error()));
        return fail(keep.error());
    }
    return Step::next;
}

BackupItems::Step BackupItems::damaged() {
    log(LogLevel::error, "The source list of job {%s} is damaged at {%Q}.\n",
        job_.definition().id().c_str(), record_.sourcePosition);
    return fail(ERROR_FILE_CORRUPT);
}

BackupItems::Step BackupItems::fail(unsigned long code) {
    job_.runError_ = code;
    return Step::ended;
}

void BackupItems::useVolume(int32_t index) {
    volume_ = nullptr;
    for (const auto& [path, volume] : job_.volumes_) {
        if (index > 0 && volume->index == index) {
            volume_ = volume.get();
        }
    }
}

std::wstring BackupItems::readFrom(const std::wstring& path) const {
    return volume_ == nullptr || volume_->shadowPath.empty()
               ? std::wstring()
               : toShadowPath(path, volume_->path, volume_->shadowPath);
}

int BackupItems::endCode() const {
    switch (static_cast<JobState>(record_.state)) {
        case JobState::pausing: return static_cast<int>(JobState::paused);
        case JobState::canceling: return static_cast<int>(JobState::cancelled);
        default: return static_cast<int>(JobState::error);
    }
}

}  // namespace dorvo

#include "storage/local/localincrementcheck.h"

#include <optional>

#include "base/key_error.h"
#include "base/log.h"
#include "base/paths.h"
#include "storage/local/localbase.h"
#include "storage/local/localdrop.h"
#include "storage/local/localerror.h"
#include "storage/local/localinstancewriter.h"
#include "storage/local/localpath.h"

namespace dorvo {
namespace {

bool isLost(DWORD error) {
    return isDamage(error) || isNotFound(error);
}

}  // namespace

LocalIncrementCheck::LocalIncrementCheck(LocalPlace place, const BackupTask& task)
    : place_(std::move(place)),
      instanceId_(task.instanceId()),
      keyMd5_(keyMd5(task.key)),
      stop_(task.stop) {}

LocalIncrementCheck::~LocalIncrementCheck() = default;

bool LocalIncrementCheck::check(const std::vector<File>& files, std::vector<bool>& send) {
    FunctionTrace trace("LocalIncrementCheck::check", "localincrementcheck.cpp");
    if (!writer_ && !place_.checkToWrite()) {
        return false;
    }
    if ((writer_ || begin()) && judge(files, send)) {
        return true;
    }
    failedIn(place_.location());
    return logFailure("do increment check of job", place_.jobId());
}

bool LocalIncrementCheck::begin() {
    if (instanceId_.empty()) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return false;
    }
    LocalPlace::Newest newest;
    if (!place_.newest(instanceId_, newest)) {
        return false;
    }
    std::unique_ptr<LocalBase> base;
    if (!newest.completed.id.empty()) {
        if (newest.completed.keyMd5 != keyMd5_) {
            SetLastError(errorKeyForeign);
            return false;
        }
        base = std::make_unique<LocalBase>(place_, newest.completed);
        if (!base->load(stop_)) {
            if (!isLost(GetLastError())) {
                return false;
            }
            // Its files are stored again, so that it does not keep the job from any more backups.
            logFailure("read the index of backup", newest.completed.id);
            base.reset();
        }
    }
    LocalInstanceDocument document;
    auto writer = LocalInstanceWriter::open(place_, instanceId_, document);
    if (!writer) {
        return false;
    }
    // The instance has to be started again, with what the new list carries over and awaits.
    if ((DeleteFileW(longPath(place_.document(instanceId_)).c_str()) == 0 &&
         GetLastError() != ERROR_FILE_NOT_FOUND) ||
        !writer->reset()) {
        return false;
    }
    sweepPlace(place_, newest);
    base_ = std::move(base);
    writer_ = std::move(writer);
    return true;
}

bool LocalIncrementCheck::judge(const std::vector<File>& files, std::vector<bool>& send) {
    std::vector<LocalRecord> carried;
    std::vector<LocalRecord> awaited;
    std::vector<bool> answer;
    for (const File& file : files) {
        const std::u16string path = localPath(file.path);
        std::optional<LocalRecord> record;
        if (base_ && !base_->find(path, file.lastWriteTime, record)) {
            return false;
        }
        answer.push_back(!record);
        if (record) {
            carried.push_back(std::move(*record));
        } else {
            LocalRecord missing;
            missing.kind = LocalRecord::Kind::awaited;
            missing.path = path;
            awaited.push_back(std::move(missing));
        }
    }
    if (stop_.interrupted()) {
        SetLastError(ERROR_CANCELLED);
        return false;
    }
    if (!writer_->plan(carried, awaited)) {
        return false;
    }
    send = std::move(answer);
    return true;
}

}  // namespace dorvo

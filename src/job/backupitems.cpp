#include "job/backupitems.h"

#include "base/last_error.h"
#include "base/log.h"
#include "base/rm_rf.h"
#include "base/text.h"
#include "source/snapshotroot.h"
#include "source/volumemap.h"
#include "storage/itemtemppath.h"

namespace dorvo {
namespace {

// Below this a disk counts as full. With more, a package that did not fit is too large for it, and
// waiting for room would hold up all the others.
constexpr uint64_t fullDiskRoom = uint64_t{1} << 30;

}  // namespace

BackupItems::BackupItems(BackupJob& job, JobActivitySourceReader& reader)
    : TransferItems(job, reader,
                    {"Start source files/directories set.\n", "End source files/directories set.\n",
                     "Skip backup volumn item.\n"}),
      job_(job),
      temporary_(itemTempFolder(job.definition().id())) {
    for (const auto& [path, volume] : job_.volumes_) {
        if (record_.volumeIndex > 0 && volume->index == record_.volumeIndex) {
            volume_ = volume.get();
        }
    }
}

void BackupItems::enterVolume(const std::wstring& path) {
    const auto found = job_.volumes_.find(path);
    volume_ = found == job_.volumes_.end() ? nullptr : found->second.get();
    record_.volumeIndex = volume_ == nullptr ? 0 : volume_->index;
}

bool BackupItems::transfer(const Item& item) {
    const std::wstring source = item.directory ? std::wstring() : readFrom(item.path);
    const bool stored = job_.storage_->backup(item.path.c_str(), item.data, item.number,
                                              source.empty() ? nullptr : source.c_str());
    LastErrorGuard keep;
    if (!item.directory) {
        if (const std::wstring package = itemTempPath(temporary_, item.number); !package.empty()) {
            rm_rf(package, true);
        }
    }
    return stored;
}

bool BackupItems::passes(const Item& item, DWORD code) {
    if (isDiskFull(code)) {
        return isDiskOfPackagesFull();
    }
    return !item.directory && volume_ != nullptr && !isHttpStatus(code) &&
           !isSnapshotThere(*volume_);
}

bool BackupItems::isDiskOfPackagesFull() {
    if (job_.roomAt(temporary_).value_or(0) >= fullDiskRoom) {
        reason_ = "its package does not fit on the disk";
        return false;
    }
    log(LogLevel::error, "The disk of {%s} is full, job {%s} waits for room.\n",
        toUtf8(temporary_).c_str(), job_.definition().id().c_str());
    return true;
}

std::wstring BackupItems::readFrom(const std::wstring& path) const {
    return volume_ == nullptr || volume_->shadowPath.empty()
               ? std::wstring()
               : toShadowPath(path, volume_->path, volume_->shadowPath);
}

}  // namespace dorvo

// What a backup's run does with its items and its storage.
#include <algorithm>

#include "base/error_codes.h"
#include "base/files.h"
#include "base/last_error.h"
#include "base/log.h"
#include "base/paths.h"
#include "base/text.h"
#include "job/backuptransfer.h"
#include "settings/serverbinding.h"
#include "source/jobvolume.h"
#include "storage/itemtemppath.h"

namespace dorvo {
namespace {

// Below this a disk counts as full. With more, a package that did not fit is too large for it, and
// waiting for room would hold up all the others.
constexpr uint64_t fullDiskRoom = uint64_t{1} << 30;

}  // namespace

void BackupTransfer::findVolume() {
    for (const auto& [path, volume] : volumes_) {
        if (record_.volumeIndex > 0 && volume->index == record_.volumeIndex) {
            volume_ = volume.get();
        }
    }
}

void BackupTransfer::enterVolume(const std::wstring& path) {
    const auto found = volumes_.find(path);
    volume_ = found == volumes_.end() ? nullptr : found->second.get();
    record_.volumeIndex = volume_ == nullptr ? 0 : volume_->index;
}

bool BackupTransfer::transfer(const Item& item) {
    const std::wstring source = item.directory ? std::wstring() : readFrom(item.path);
    const bool stored = storage_->backup(item.path.c_str(), item.data, item.number,
                                         source.empty() ? nullptr : source.c_str());
    // What is stored has taken its package away.
    if (!stored && !item.directory) {
        const LastErrorGuard keep;
        if (const std::wstring package = itemTempPath(temporary_, item.number); !package.empty()) {
            rm_rf(package, true);
        }
    }
    return stored;
}

bool BackupTransfer::passes(const Item& item, DWORD code) {
    if (isDiskFull(code)) {
        return isDiskOfPackagesFull();
    }
    return !item.directory && volume_ != nullptr && !isHttpStatus(code) &&
           !isSnapshotThere(*volume_);
}

bool BackupTransfer::isDiskOfPackagesFull() {
    if (services_.roomAt(temporary_).value_or(0) >= fullDiskRoom) {
        reason_ = "its package does not fit on the disk";
        return false;
    }
    log(LogLevel::error, "The disk of {%s} is full, job {%s} waits for room.\n", toUtf8(temporary_),
        jobId());
    return true;
}

std::wstring BackupTransfer::readFrom(const std::wstring& path) const {
    return volume_ == nullptr || volume_->shadowPath.empty()
               ? std::wstring()
               : toShadowPath(path, volume_->path, volume_->shadowPath);
}

void BackupTransfer::tidyUp(JobState endCode) {
    // A run that ends before it has loaded its volumes leaves those of an earlier start.
    if (volumes_.empty() && endCode != JobState::paused) {
        loadVolumes(jobId().c_str(), volumes_);
    }
    clearVolumes(volumes_, jobId().c_str(), static_cast<int>(endCode));
    if (endCode != JobState::paused) {
        // Of an item that was broken off with the process.
        rm_rf(itemTempFolder(jobId()), false);
    }
}

bool BackupTransfer::openStorage() {
    return makeStorage(StorageUse::items) && storage_->start();
}

// The server may be set anew while the storage is made, which asks it for the user's key: whose
// the storage has become is held against the note once more, before it hears of the run.
bool BackupTransfer::makeStorage(StorageUse use) {
    storage_ = createStorage_(storageRun(use), totals_);
    if (!storage_ || note()) {
        return storage_ != nullptr;
    }
    if (GetLastError() != errorOtherServer) {
        SetLastError(
            ERROR_LOCK_VIOLATION);  // the note was there a moment ago: the run waits for it
    }
    const LastErrorGuard keep;
    storage_.reset();
    return false;
}

// A completed run is never dropped: it is recorded as such when its note is gone.
bool BackupTransfer::completeAtStorage() {
    if (memory().completed != instanceText()) {
        if (!storage_->end()) {
            return false;
        }
        memory().completed = instanceText();
    }
    return drops_.forget(instanceText());
}

// What the storage has completed stays, and is what the run has come to, whoever stops it then: the
// answer to its end may have been lost. A refusal is no answer for good, see PendingDrops::tell.
bool BackupTransfer::dropAtStorage(JobState& endCode) {
    if (memory().completed != instanceText()) {
        if ((storage_ || makeStorage(StorageUse::end)) && storage_->cancel()) {
            services_.tellDrops();  // the storage is there: it hears of the others, too
            return true;
        }
        const LastErrorGuard keep;
        if (!storage_ || !isCompletedAtStorage(keep.error())) {
            return false;
        }
    }
    endCode = JobState::completed;
    return true;
}

// A folder says that of completed runs only. A service says a conflict, and is asked for the end
// once more, which changes nothing about a completed run; a run that does not stand at the end of
// its list has never been ended.
bool BackupTransfer::isCompletedAtStorage(DWORD refusal) {
    if (refusal != withHttpMark(409)) {
        return refusal == errorInstanceState;
    }
    std::wstring directory;
    JobActivitySourceReader list;
    return jobDirectory(jobId(), directory) &&
           list.open(directory + L"\\src", static_cast<int64_t>(record_.sourcePosition)) &&
           list.next() == tagSetEnd && list.next() == 0 && storage_->end();
}

bool BackupTransfer::note() {
    const PendingDrop place = placeOfRun(definition_, instanceText());
    const std::optional<PendingDrop> noted = drops_.note(place);
    if (!noted || noted->server.empty() || noted->server == place.server) {
        return noted.has_value();
    }
    return logFailed(
        errorOtherServer,
        "Run {%s} of job {%s} has begun at the server {%s}, and {%s} is set: the next run begins "
        "there.\n",
        noted->instanceId, jobId(), noted->server, place.server);
}

PendingDrop placeOfRun(const BackupJobDefinition& definition, const std::string& instanceId) {
    if (definition.storage() == StorageKind::local) {
        return {instanceId, definition.location()};
    }
    return {instanceId, {}, serverOfOptions()};
}

}  // namespace dorvo

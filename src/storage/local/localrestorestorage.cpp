#include "storage/local/localrestorestorage.h"

#include <algorithm>
#include <span>
#include <vector>

#include "base/disk_room.h"
#include "base/file_bytes.h"
#include "base/handle.h"
#include "base/key_error.h"
#include "base/last_error.h"
#include "base/log.h"
#include "base/md5.h"
#include "base/paths.h"
#include "base/text.h"
#include "storage/item_attributes.h"
#include "storage/itemtemppath.h"
#include "storage/local/localerror.h"
#include "storage/local/localindexcursor.h"
#include "storage/local/localpackages.h"
#include "storage/local/localpath.h"
#include "storage/restoretarget.h"

namespace dorvo {

LocalRestoreStorage::LocalRestoreStorage(const std::wstring& location, RestoreTask task)
    : interrupter(task.stop),
      task_(std::move(task)),
      activity_(task_.activity),
      progress_(task_.activity),
      place_(location, task_.from.machine, task_.from.jobDefinitionId),
      temporary_(itemTempFolder(task_.jobId)),
      plain_(false),
      compressed_(true) {
    for (RestoreTransformation* transformation : {&plain_, &compressed_}) {
        transformation->key = task_.key.key;
        transformation->iv = task_.key.iv;
    }
}

LocalRestoreStorage::~LocalRestoreStorage() = default;

bool LocalRestoreStorage::start() {
    FunctionTrace trace("LocalRestoreStorage::start", "localrestorestorage.cpp");
    if (!place_.checkToRead()) {
        return false;
    }
    if (open()) {
        // A run that goes on waits for this disk, also on a machine that never wrote to it.
        place_.remember(task_.jobId);
        return true;
    }
    failedIn(place_.location());
    return logFailure("start restore job", task_.jobId + ", " + task_.jobName);
}

bool LocalRestoreStorage::open() {
    LocalInstanceDocument document;
    if (!place_.loadCompleted(task_.from.jobInstanceId, document)) {
        return false;
    }
    if (document.keyMd5 != keyMd5(task_.key)) {
        SetLastError(errorKeyForeign);
        return false;
    }
    auto index = std::make_unique<LocalIndexCursor>(this);
    if (!index->reader().open(place_.index(task_.from.jobInstanceId), document.indexSize)) {
        return false;
    }
    index_ = std::move(index);
    packages_ = std::make_unique<LocalPackages>(place_);
    return true;
}

bool LocalRestoreStorage::recordError(const wchar_t* path, DWORD code, const std::string& reason) {
    if (task_.failed == nullptr || !task_.failed->add(path, code, reason)) {
        return false;
    }
    DeleteFileW(longPath(itemTempPath(temporary_, activity_->itemNumber)).c_str());
    return true;
}

bool LocalRestoreStorage::end(const json_spirit::Object&) {
    FunctionTrace trace("LocalRestoreStorage::end", "localrestorestorage.cpp");
    return true;
}

bool LocalRestoreStorage::valid(const wchar_t* original, const wchar_t* target) const {
    const std::wstring_view from = original == nullptr ? L"" : original;
    const std::wstring_view to = target == nullptr ? L"" : target;
    if (index_ && !from.empty() && !to.empty()) {
        return true;
    }
    SetLastError(ERROR_INVALID_PARAMETER);
    return logFailure("restore an item", toUtf8(from));
}

bool LocalRestoreStorage::find(const std::wstring& original, LocalRecord::Kind kind,
                               LocalRecord& record) {
    return index_->find(localPath(original), kind, record) || failedIn(place_.location());
}

bool LocalRestoreStorage::failed(const char* action, const std::string& name) const {
    SetLastError(errorOf(GetLastError()));
    failedNear(place_.location());
    const DWORD error = GetLastError();
    if (!interrupter::interrupted()) {
        return logFailure(action, name);
    }
    // Whatever fails while the job must stop has failed because of that.
    SetLastError(ERROR_CANCELLED);
    log(LogLevel::information, "Restoring {%s} is cancelled, error-code = %d.\n", name.c_str(),
        static_cast<int>(error));
    return false;
}

bool LocalRestoreStorage::restoreDirectory(const wchar_t* original, const wchar_t* target) {
    FunctionTrace trace("LocalRestoreStorage::restoreDirectory", "localrestorestorage.cpp");
    if (!valid(original, target)) {
        return false;
    }
    log(LogLevel::debug, "Restoring directory {%s} to {%s}.\n", toUtf8(original).c_str(),
        toUtf8(target).c_str());
    beginWork();
    LocalRecord record;
    bool existed = false;
    return (find(original, LocalRecord::Kind::folder, record) &&
            makeRestoredDirectory(target, existed) &&
            dressRestoredDirectory(target, fileAttributes(record.attributes))) ||
           failed("restore directory", toUtf8(original));
}

bool LocalRestoreStorage::restoreFile(const wchar_t* original, const wchar_t* target,
                                      uint32_t number, bool replace) {
    FunctionTrace trace("LocalRestoreStorage::restoreFile", "localrestorestorage.cpp");
    if (!valid(original, target)) {
        return false;
    }
    log(LogLevel::debug, "Restoring file {%s} to {%s}.\n", toUtf8(original).c_str(),
        toUtf8(target).c_str());
    const std::wstring package = itemTempPath(temporary_, number);
    beginWork();
    progress_.claim(number);
    LocalRecord record;
    RestoreTarget file(target, activity_->instanceId, number, task_.placing);
    if (!find(original, LocalRecord::Kind::file, record) || !file.makeParents()) {
        return failed("restore file", toUtf8(original));
    }
    claimPackage(record.size, package);
    if (!hasRoom(record, file)) {
        return failed("restore file", toUtf8(original));
    }
    if (!fetch(record, package) || !put(record, package, file, replace)) {
        if (isDamage(GetLastError())) {
            packages_->noteDamage(record);
        }
        return failed("restore file", toUtf8(original));
    }
    DeleteFileW(longPath(package).c_str());
    return true;
}

// Asked before anything is copied: it would all be for nothing.
bool LocalRestoreStorage::hasRoom(const LocalRecord& record, const RestoreTarget& file) const {
    if (fitsOnDisk({temporary_, record.size - activity_->fileOffset},
                   file.need(sizeOf(fileAttributes(record.attributes))))) {
        return true;
    }
    SetLastError(ERROR_DISK_FULL);
    return false;
}

// What is on record of blocks belongs to a package of the size on record. The offset is that of
// what has been copied.
void LocalRestoreStorage::claimPackage(uint64_t size, const std::wstring& package) {
    WIN32_FILE_ATTRIBUTE_DATA there{};
    progress_.transferring(size,
                           readAttributes(package, there) ? std::min(sizeOf(there), size) : 0);
}

// Brings the package here. What an earlier run has copied is here already, unless a power cut took
// it: then the check sum tells, and all is copied again.
bool LocalRestoreStorage::fetch(const LocalRecord& record, const std::wstring& package) {
    HANDLE from = packages_->open(record);
    if (from == INVALID_HANDLE_VALUE) {
        return failedIn(place_.location());
    }
    const FileHandle to(CreateFileW(longPath(package).c_str(), GENERIC_READ | GENERIC_WRITE,
                                    FILE_SHARE_READ, nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL,
                                    nullptr));
    uint64_t there = 0;
    if (!to || !fileSize(to.get(), there) ||
        (there > record.size && !resizeFile(to.get(), record.size))) {
        return false;
    }
    const uint64_t copied =
        std::min(uint64_t{activity_->acceptedBlocks} * uploadBlockSize, record.size);
    const uint64_t kept = copied <= there ? copied : 0;
    bool whole = false;
    if (!copy(record, from, to.get(), kept, whole) ||
        (!whole && kept != 0 && !copy(record, from, to.get(), 0, whole))) {
        return false;
    }
    SetLastError(ERROR_INVALID_DATA);
    return whole;
}

// The first `kept` bytes are not copied but read. `whole`: the check sum is that of the record.
bool LocalRestoreStorage::copy(const LocalRecord& record, HANDLE from, HANDLE to, uint64_t kept,
                               bool& whole) {
    progress_.backTo(
        static_cast<uint32_t>(kept / uploadBlockSize + (kept % uploadBlockSize != 0 ? 1 : 0)), 0);
    Md5 md5;
    std::vector<std::byte> block;
    for (uint64_t done = 0; done < record.size; done += block.size()) {
        if (interrupter::interrupted()) {
            SetLastError(ERROR_CANCELLED);
            return false;
        }
        block.resize(static_cast<size_t>(std::min<uint64_t>(uploadBlockSize, record.size - done)));
        if (done < kept) {
            if (!readFileAt(to, done, block)) {
                return false;
            }
            progress_.found(block.size());
        } else {
            if (!readFileAt(from, record.offset + done, block)) {
                return failedIn(place_.location());
            }
            if (!writeFileAt(to, done, block)) {
                return false;
            }
            progress_.accepted(activity_->acceptedBlocks + 1, block.size());
        }
        md5.update(block);
    }
    whole = digestBytes(md5.final()) == record.md5;
    return true;
}

bool LocalRestoreStorage::put(const LocalRecord& record, const std::wstring& package,
                              RestoreTarget& file, bool replace) {
    const WIN32_FILE_ATTRIBUTE_DATA data = fileAttributes(record.attributes);
    progress_.encoding(record.size);
    const bool decoded = file.decode(package, record.compress ? compressed_ : plain_, this);
    if (!decoded) {
        return false;
    }
    progress_.encoded(record.size);
    // The content is worth more than what it is dressed with.
    if (!file.setAttributes(data.dwFileAttributes)) {
        logFailure("set the attributes of file", toUtf8(file.path()));
    }
    if (!file.openToSetTimes() || !file.setTimes(data)) {
        logFailure("set the times of file", toUtf8(file.path()));
    }
    return file.place(replace);
}

}  // namespace dorvo

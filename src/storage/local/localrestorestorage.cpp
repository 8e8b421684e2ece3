#include "storage/local/localrestorestorage.h"

#include <algorithm>

#include "base/error_codes.h"
#include "base/files.h"
#include "base/log.h"
#include "base/text.h"
#include "storage/item_attributes.h"
#include "storage/itemtemppath.h"
#include "storage/local/localerror.h"
#include "storage/local/localindexreader.h"
#include "storage/local/localpackages.h"
#include "storage/local/localrecord.h"
#include "storage/restoretarget.h"

namespace dorvo {

LocalRestoreStorage::LocalRestoreStorage(const std::wstring& location, RestoreTask task)
    : interrupter(task.stop),
      task_(std::move(task)),
      progress_(task_.activity),
      place_(location, task_.from.machine, task_.from.jobDefinitionId),
      temporary_(itemTempFolder(task_.jobId)),
      fetcher_(task_, temporary_, ItemFetcher::ResumeBy::blocks, *this, *this) {}

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

bool LocalRestoreStorage::findRecord(const std::wstring& original, LocalRecord::Kind kind,
                                     LocalRecord& record) {
    return index_->find(localPath(original), kind, record) || failedIn(place_.location());
}

bool LocalRestoreStorage::itemFailed(const char* action, const std::string& name) const {
    SetLastError(errorOf(GetLastError()));
    failedNear(place_.location());
    const DWORD error = GetLastError();
    if (!interrupter::interrupted()) {
        return logFailure(action, name);
    }
    // Whatever fails while the job must stop has failed because of that.
    SetLastError(ERROR_CANCELLED);
    log(LogLevel::information, "Restoring {%s} is cancelled, error-code = %d.\n", name, error);
    return false;
}

bool LocalRestoreStorage::restoreDirectory(const wchar_t* original, const wchar_t* target) {
    FunctionTrace trace("LocalRestoreStorage::restoreDirectory", "localrestorestorage.cpp");
    if (!valid(original, target)) {
        return false;
    }
    log(LogLevel::debug, "Restoring directory {%s} to {%s}.\n", toUtf8(original), toUtf8(target));
    beginWork();
    LocalRecord record;
    bool existed = false;
    return (findRecord(original, LocalRecord::Kind::folder, record) &&
            makeRestoredDirectory(target, existed) &&
            dressRestoredDirectory(target, fileAttributes(record.attributes))) ||
           itemFailed("restore directory", toUtf8(original));
}

bool LocalRestoreStorage::restoreFile(const wchar_t* original, const wchar_t* target,
                                      uint32_t number, bool replace) {
    FunctionTrace trace("LocalRestoreStorage::restoreFile", "localrestorestorage.cpp");
    if (!valid(original, target)) {
        return false;
    }
    FetchedItem item(task_, original, target, number, temporary_);
    log(LogLevel::debug, "Restoring file {%s} to {%s}.\n", item.name, item.place);
    beginWork();
    // Nothing is made for a file that is not here.
    if (!lookUp(item)) {
        return itemFailed("restore file", item.name);
    }
    if (fetcher_.fetch(item, replace)) {
        return true;
    }
    if (damaged_) {
        packages_->noteDamage(record_);
    }
    return false;
}

bool LocalRestoreStorage::lookUp(FetchedItem& item) {
    if (!findRecord(item.path, LocalRecord::Kind::file, record_)) {
        return false;
    }
    item.data = fileAttributes(record_.attributes);
    item.size = record_.size;
    item.compressed = record_.compress;
    damaged_ = false;
    from_ = packages_->open(record_);
    return from_ != INVALID_HANDLE_VALUE || failedIn(place_.location());
}

void LocalRestoreStorage::failed(FetchStep step, const FetchedItem& item) const {
    damaged_ = damaged_ || (step == FetchStep::decode && GetLastError() == ERROR_INVALID_DATA);
    switch (step) {
        case FetchStep::attributes: logFailure("set the attributes of file", item.place); break;
        case FetchStep::openToSetTimes:
        case FetchStep::times: logFailure("set the times of file", item.place); break;
        default: itemFailed("restore file", item.name); break;
    }
}

// The check sum is of all bytes: those that are here already are read.
bool LocalRestoreStorage::begin(const FetchedItem&, HANDLE package, uint64_t& kept) {
    damaged_ = false;
    digest_ = Md5();
    for (uint64_t done = 0; done < kept; done += block_.size()) {
        if (interrupter::interrupted()) {
            SetLastError(ERROR_CANCELLED);
            return false;
        }
        block_.resize(static_cast<size_t>(std::min<uint64_t>(uploadBlockSize, kept - done)));
        if (!readFileAt(package, done, block_)) {
            return false;
        }
        digest_.update(block_);
    }
    return true;
}

bool LocalRestoreStorage::get(const FetchedItem& item, uint64_t offset,
                              std::span<const std::byte>& block) {
    block_.resize(static_cast<size_t>(std::min<uint64_t>(uploadBlockSize, item.size - offset)));
    if (!readFileAt(from_, record_.offset + offset, block_)) {
        damaged_ = isDamage(GetLastError());
        return failedIn(place_.location());
    }
    digest_.update(block_);
    block = block_;
    return true;
}

bool LocalRestoreStorage::check(const FetchedItem&) {
    SetLastError(ERROR_INVALID_DATA);
    damaged_ = digestBytes(digest_.final()) != record_.md5;
    return !damaged_;
}

}  // namespace dorvo

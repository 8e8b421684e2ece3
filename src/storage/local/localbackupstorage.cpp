#include "storage/local/localbackupstorage.h"

#include <algorithm>
#include <cstring>

#include "base/error_codes.h"
#include "base/files.h"
#include "base/handle.h"
#include "base/local_time.h"
#include "base/log.h"
#include "base/paths.h"
#include "base/text.h"
#include "storage/item_attributes.h"
#include "storage/itemtemppath.h"
#include "storage/local/localdrop.h"
#include "storage/local/localerror.h"
#include "storage/local/localindexreader.h"
#include "storage/local/localinstancewriter.h"
#include "storage/local/localrecord.h"
#include "storage/wire_time.h"

namespace dorvo {
namespace {

std::wstring sourceListPath(const std::string& jobId) {
    std::wstring path;
    return jobDirectory(jobId, path) ? path + L"\\src" : std::wstring();
}

}  // namespace

LocalBackupStorage::LocalBackupStorage(LocalPlace place, std::string user, BackupTask task)
    : interrupter(task.stop),
      place_(std::move(place)),
      user_(std::move(user)),
      task_(std::move(task)),
      activity_(task_.activity),
      progress_(task_.activity),
      instanceId_(task_.instanceId()),
      list_(sourceListPath(task_.jobId)),
      block_(uploadBlockSize),
      stored_(uploadBlockSize),
      sender_(task_, itemTempFolder(task_.jobId), *this, *this) {}

LocalBackupStorage::~LocalBackupStorage() = default;

bool LocalBackupStorage::start() {
    FunctionTrace trace("LocalBackupStorage::start", "localbackupstorage.cpp");
    if (instanceId_.empty()) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return logFailure("start job", job());
    }
    if (writer_ || completed_) {
        return true;
    }
    if (!place_.checkToWrite()) {
        return false;
    }
    if (open()) {
        return true;
    }
    failedIn(place_.location());
    writer_.reset();
    return logFailure("start job", job());
}

bool LocalBackupStorage::open() {
    LocalPlace::Newest newest;
    if (!place_.newest(instanceId_, newest)) {
        return false;
    }
    if (!newest.completed.id.empty() && newest.completed.keyMd5 != keyMd5(task_.key)) {
        SetLastError(errorKeyForeign);
        return false;
    }
    writer_ = LocalInstanceWriter::open(place_, instanceId_, document_);
    const bool completed = document_.state == LocalInstanceDocument::State::completed;
    if (!writer_ && !completed) {
        return false;
    }
    if (!document_.id.empty() && document_.keyMd5 != keyMd5(task_.key)) {
        SetLastError(errorKeyForeign);
        return false;
    }
    completed_ = completed;
    if (completed_) {
        // The run that completed it may have been killed before it got round to this.
        dropAwaited(place_, instanceId_);
        return true;
    }
    if (writer_->load() && (document_.id.empty() ? openNew(newest) : goOn()) && keepItems() &&
        writer_->verify(*this)) {
        return true;
    }
    return failedUnfinished();
}

// The item at which the run stands may have been stored without its being said, and those behind it
// where a power cut has taken what was said: they are stored once more.
bool LocalBackupStorage::keepItems() {
    const std::unordered_set<std::string> failed = failedPaths();
    return writer_->keepItems({list_, activity_->sourcePosition, &failed}, *this);
}

bool LocalBackupStorage::goOn() {
    uint64_t awaited = 0;
    if (!writer_->countAwaited(awaited)) {
        return false;
    }
    SetLastError(ERROR_INVALID_DATA);
    return writer_->carried() == document_.carried && awaited == document_.awaited;
}

bool LocalBackupStorage::openNew(const LocalPlace::Newest& newest) {
    sweepPlace(place_, newest);
    LocalInstanceDocument made;
    made.sequence = newest.sequence + 1;
    made.id = instanceId_;
    made.jobId = task_.jobId;
    made.jobName = task_.jobName;
    made.machine = place_.machine();
    made.user = user_;
    made.keyMd5 = keyMd5(task_.key);
    made.startTime = wire_time(localToUtc(activity_->startTime));
    made.files = task_.totals.files;
    made.directories = task_.totals.directories;
    made.size = task_.totals.size;
    made.carried = writer_->carried();
    document_ = made;
    // What the check has carried over went with the instance's folder.
    if (made.carried == 0 && activity_->unchangedSize != 0) {
        SetLastError(ERROR_INVALID_DATA);
        return false;
    }
    return writer_->countAwaited(document_.awaited) && place_.save(document_);
}

// Items, end and cancel come after a start.
bool LocalBackupStorage::ready(const char* action) const {
    if (writer_) {
        return true;
    }
    SetLastError(errorInstanceState);
    return logFailure(action, job());
}

bool LocalBackupStorage::end() {
    FunctionTrace trace("LocalBackupStorage::end", "localbackupstorage.cpp");
    if (completed_) {
        return true;
    }
    if (!ready("end job")) {
        return false;
    }
    if (!isWhole() || !complete()) {
        failedUnfinished();
        failedIn(place_.location());
        return logFailure("end job", job());
    }
    completed_ = true;
    writer_.reset();
    dropAwaited(place_, instanceId_);
    return true;
}

std::unordered_set<std::string> LocalBackupStorage::failedPaths() const {
    std::unordered_set<std::string> paths;
    if (task_.failed != nullptr) {
        for (FailedItem& item : task_.failed->list()) {
            paths.insert(withoutTrailingBackslash(std::move(item.path)));
        }
    }
    return paths;
}

// Every file of the list has its package or is on the error list. Packages and list have the same
// order, so that both are read once.
bool LocalBackupStorage::isWhole() {
    if (document_.awaited == 0) {
        return true;
    }
    const std::unordered_set<std::string> failed = failedPaths();
    LocalIndexReader awaited;
    LocalIndexCursor stored;
    if (!awaited.open(place_.awaited(instanceId_)) ||
        !stored.reader().open(place_.index(instanceId_), writer_->indexSize())) {
        return false;
    }
    LocalRecord file;
    LocalRecord package;
    while (awaited.next(file)) {
        if (failed.contains(toUtf8(widePath(file.path))) ||
            stored.find(file.path, LocalRecord::Kind::file, package)) {
            continue;
        }
        if (GetLastError() == ERROR_FILE_NOT_FOUND) {
            SetLastError(errorInstanceState);
            logFailure("find a file of the list in the backup", toUtf8(widePath(file.path)));
        }
        return false;
    }
    return GetLastError() == ERROR_HANDLE_EOF;
}

bool LocalBackupStorage::complete() {
    std::vector<LocalRecord> failed;
    if (task_.failed != nullptr) {
        for (const FailedItem& item : task_.failed->list()) {
            LocalRecord record;
            record.kind = LocalRecord::Kind::failed;
            record.size = item.code;
            record.path = localPath(toWide(item.path));
            record.path.resize(std::min(record.path.size(), longestLocalPath));
            failed.push_back(std::move(record));
        }
    }
    if (!writer_->finish(failed)) {
        return false;
    }
    LocalInstanceDocument completed = document_;
    completed.state = LocalInstanceDocument::State::completed;
    completed.endTime = wire_time(utcTimeNow());
    completed.errors = failed.size();
    completed.records = writer_->records();
    completed.indexSize = writer_->indexSize();
    completed.packagesSize = writer_->packageOffset();
    return place_.save(completed) || failedToReplace(place_.location());
}

bool LocalBackupStorage::cancel() {
    FunctionTrace trace("LocalBackupStorage::cancel", "localbackupstorage.cpp");
    if (instanceId_.empty()) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return logFailure("cancel job", job());
    }
    if (!place_.checkToDrop(instanceId_)) {
        return false;
    }
    // What may be completed is not dropped: that of which nobody can tell stays as well.
    writer_.reset();
    if (!dropInstance(place_, instanceId_)) {
        failedIn(place_.location());
        return logFailure("cancel job", job());
    }
    return true;
}

bool LocalBackupStorage::backup(const wchar_t* path, const WIN32_FILE_ATTRIBUTE_DATA& data,
                                uint32_t number, const wchar_t* readFrom) {
    FunctionTrace trace("LocalBackupStorage::backup", "localbackupstorage.cpp");
    if (!ready("back up an item of job")) {
        return false;
    }
    SentItem item(path, data, number, readFrom);
    log(LogLevel::debug, "Backing up {%s}.\n", item.name);
    beginWork();
    return sender_.send(std::move(item));
}

void LocalBackupStorage::failed(SendStep, const SentItem& item) const {
    SetLastError(errorOf(GetLastError()));
    failedNear(place_.location());
    const DWORD error = GetLastError();
    if (interrupter::interrupted()) {
        // Whatever fails while the job must stop has failed because of that.
        SetLastError(ERROR_CANCELLED);
        log(LogLevel::information, "Backing up {%s} is cancelled, error-code = %d.\n", item.name,
            error);
    } else {
        logFailure("back up", item.name);
    }
}

void LocalBackupStorage::begin(const SentItem&) {
    digest_ = Md5();
}

// Byte for byte, up to the first block that is another one.
bool LocalBackupStorage::compare(const SentItem& item, uint32_t& blocks) {
    ItemPackage::Reader package = item.package->open();
    if (!package) {
        return false;
    }
    uint32_t same = 0;
    for (uint64_t offset = 0; same < blocks && offset < item.size; offset += uploadBlockSize) {
        if (interrupted()) {
            SetLastError(ERROR_CANCELLED);
            return false;
        }
        const auto length =
            static_cast<size_t>(std::min<uint64_t>(uploadBlockSize, item.size - offset));
        const auto block = std::span(block_).first(length);
        const auto stored = std::span(stored_).first(length);
        DWORD got = 0;
        if (!package.read(block, got)) {
            return false;
        }
        if (got != length) {
            SetLastError(ERROR_HANDLE_EOF);
            return false;
        }
        if (!writer_->readPackage(offset, stored) ||
            !std::equal(stored.begin(), stored.end(), block.begin())) {
            break;
        }
        digest_.update(block);
        same += 1;
    }
    blocks = same;
    return true;
}

bool LocalBackupStorage::put(const SentItem&, uint32_t number, std::span<const std::byte> block,
                             uint32_t& accepted) {
    if (interrupted()) {
        SetLastError(ERROR_CANCELLED);
        return false;
    }
    if (!writer_->writePackage(uint64_t{number - 1} * uploadBlockSize, block)) {
        return failedIn(place_.location());
    }
    digest_.update(block);
    accepted = number;
    return true;
}

bool LocalBackupStorage::finish(const SentItem& item) {
    LocalRecord record;
    record.kind = item.directory() ? LocalRecord::Kind::folder : LocalRecord::Kind::file;
    record.attributes = itemAttributes(item.data);
    record.path = localPath(item.path);
    if (!item.directory()) {
        record.size = item.size;
        record.compress = task_.compress;
        record.md5 = digestBytes(digest_.final());
    }
    return writer_->append(std::move(record)) || failedIn(place_.location());
}

}  // namespace dorvo

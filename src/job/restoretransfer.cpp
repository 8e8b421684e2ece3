#include "job/restoretransfer.h"

#include <algorithm>

#include "base/error_codes.h"
#include "base/files.h"
#include "base/last_error.h"
#include "base/log.h"
#include "base/paths.h"
#include "base/text.h"
#include "job/restorelist.h"
#include "job/restorepathlinks.h"
#include "record/sourcerecord.h"
#include "source/speedcalc.h"
#include "storage/itemtemppath.h"
#include "storage/restoretarget.h"

namespace dorvo {
namespace {

constexpr const char* lostItemsText = "the storage has lost items of the backup's list";

// How often another name is looked for when the chosen one was taken meanwhile.
constexpr int renameTries = 16;
// What a disk takes for itself when a file is made.
constexpr uint64_t spareRoom = uint64_t{16} << 20;

bool isFolder(const std::wstring& path) {
    const DWORD attributes = GetFileAttributesW(longPath(path).c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

std::wstring withoutTrailing(std::wstring path) {
    path.erase(path.find_last_not_of(L"\\/") + 1);
    return path;
}

}  // namespace

RestoreTransfer::RestoreTransfer(Context context, Parts parts)
    : Transfer(std::move(context),
               {"restore", "Start of files/directories list.\n", "End of files/directories list.\n",
                "Skip restore volumn item.\n"}),
      definition_(parts.definition),
      placing_(parts.placing),
      createStorage_(std::move(parts.createStorage)),
      createCatalog_(std::move(parts.createCatalog)),
      temporary_(itemTempFolder(jobId())) {}

JobState RestoreTransfer::run() {
    atStorage_ = true;  // which hears of every run that ends
    if (!begin("Start event set.\n")) {
        return brokenOffCode();
    }
    const SpeedCalc speed(record_, [this] { publish(); });
    log(LogLevel::debug, "Speed calculater registered.\n");
    if (!takeUp()) {
        return brokenOffCode();
    }
    // The item is decoded anew, or somebody has gone on with what this run does not know of.
    placing_.removeSibling();
    PlacingRecord::sweep();
    log(LogLevel::debug, "Job history information loaded.\n");
    return prepare() ? processItems() : brokenOffCode();
}

bool RestoreTransfer::prepare() {
    if (!carryOn() || !findRoot() || !makeList()) {
        return false;
    }
    if (!reader_.open(list_, static_cast<int64_t>(record_.sourcePosition))) {
        LastErrorGuard keep;
        log(LogLevel::error, "Failed to open job activity source file to read, error = %d, %s.\n",
            keep.error(), reasonText(keep.error()));
        return failUnlessHeld(keep.error());
    }
    log(LogLevel::debug, "Job source reader ready.\n");
    choosePlaces();
    return startItems("Start to restore files/directories.\n");
}

// Without its drive or share every single item would be fetched for nothing.
bool RestoreTransfer::findRoot() {
    const std::wstring& target = definition_.target();
    const std::wstring root = std::wstring(volumeRootOf(target)) + L"\\";
    if (target.empty() || GetFileAttributesW(longPath(root).c_str()) != INVALID_FILE_ATTRIBUTES) {
        return true;
    }
    LastErrorGuard keep;
    const bool missing =
        keep.error() == ERROR_FILE_NOT_FOUND || keep.error() == ERROR_PATH_NOT_FOUND;
    keep.set(missing ? DWORD{ERROR_INVALID_DRIVE} : keep.error());
    log(LogLevel::error, "The place to restore to {%s} is not there, error-code = %d, %s.\n",
        toUtf8(root), keep.error(), reasonText(keep.error()));
    // What has brought items there waits for it, as for its server.
    return resumed_ ? pause(keep.error()) : refuse(keep.error());
}

bool RestoreTransfer::makeList() {
    if (listed_) {
        return true;
    }
    // Item numbers begin anew, and packages and files in their places are known by them.
    rm_rf(temporary_, false);
    placing_.finish();
    if (!beginList() || !forgetMadeFolders()) {
        return false;
    }
    if (!generateList()) {
        LastErrorGuard keep;
        log(LogLevel::error, "Failed to generate activity source file, error = %d, %s.\n",
            withoutHttpMark(keep.error()), reasonText(keep.error()));
        return failOrWait(keep.error());
    }
    log(LogLevel::debug,
        "Job source list generated, total size is %Q, total files is %d, total directories is "
        "%d.\n",
        record_.totalSize, record_.fileCount, record_.directoryCount);
    return carryOn();
}

bool RestoreTransfer::forgetMadeFolders() {
    return MadeFolders::forget(madeFoldersPath(list_)) || failUnlessHeld(GetLastError());
}

bool RestoreTransfer::generateList() {
    const std::unique_ptr<RestoreCatalog> catalog = createCatalog_();
    if (!catalog) {
        return false;
    }
    const interrupter stop(stopEvent());
    RestoreListGenerator generator({.catalog = catalog.get(),
                                    .stop = &stop,
                                    .failedItem = [&](const std::wstring& path, DWORD error) {
                                        addFailed(path, error,
                                                  error == errorLostBytes ? lostItemsText : "");
                                    }});
    if (!generator.generate(list_, definition_.source())) {
        return false;
    }
    if (!allRecorded()) {
        return false;
    }
    const SourceCalculator& found = generator.totals();
    const SourceTotals totals{found.directoryCount(), found.fileCount(), found.fileSize()};
    return endList(totals, totals);
}

void RestoreTransfer::choosePlaces() {
    ownData_.emplace();
    roots_.emplace(definition_.source(), list_);
    if (definition_.conflict() == RestoreJobDefinition::conflictKeep) {
        made_ = std::make_unique<MadeFolders>(madeFoldersPath(list_));
    }
    if (definition_.target().empty()) {
        policy_ = std::make_unique<RestoreOriginalLocationPolicy>(definition_.conflict());
        return;
    }
    const std::wstring location = withoutTrailing(definition_.target()) + L"\\";
    prefix_ = withoutTrailing(definition_.prefix());
    auto policy = std::make_unique<RestoreOtherLocationPolicy>(definition_.conflict(),
                                                               location.c_str(), prefix_);
    root_ = policy->location();
    dressRoot_ = !prefix_.empty() && !isVolumeRoot(prefix_);
    policy_ = std::move(policy);
}

bool RestoreTransfer::transfer(const Item& item) {
    std::wstring target;
    if (!findPlace(item.path, item.directory, target)) {
        return logFailed("Failed to restore {%s} to {%s}, error-code = %d, %s.\n",
                         toUtf8(item.path), toUtf8(target), GetLastError(), reason_);
    }
    return item.directory ? restoreDirectory(item, target) : restoreFile(item);
}

bool RestoreTransfer::findPlace(const std::wstring& path, bool directory, std::wstring& target) {
    if (!policy_->targetPath(path.c_str(), true, target)) {
        SetLastError(ERROR_BAD_PATHNAME);
        return false;
    }
    RestorePathRequest request{.original = path,
                               .prefix = prefix_,
                               .root = root_,
                               .target = target,
                               .directory = directory};
    RestorePathFault fault = judgeRestorePath(request);
    if (fault == RestorePathFault::link && root_.empty()) {
        const std::wstring way = roots_->above(path);
        request.ownWay = way;
        fault = judgeRestorePath(request);
    }
    if (fault == RestorePathFault::none) {
        if (!ownData_->partOf(target)) {
            return true;
        }
        fault = RestorePathFault::ownData;
    }
    reason_ = restorePathText(fault);
    SetLastError(restorePathCode(fault));
    return false;
}

bool RestoreTransfer::restoreDirectory(const Item& item, const std::wstring& target) {
    if (made_ && made_->last() != item.number) {
        if (isFolder(target)) {
            return true;  // and stays as it is
        }
        if (!made_->add(item.number)) {
            return false;
        }
    }
    if (isDressed(target)) {
        return storage_->restoreDirectory(item.path.c_str(), target.c_str());
    }
    bool existed = false;
    if (makeRestoredDirectory(target, existed)) {
        return true;
    }
    return logFailed("Failed to create directory {%s}, error-code = %d, %m.\n", toUtf8(target),
                     GetLastError());
}

bool RestoreTransfer::restoreFile(const Item& item) {
    if (placing_.isPlaced(record_.instanceId, item.number)) {
        // The run was killed between the last step of this item and its next position.
        DeleteFileW(longPath(itemTempPath(temporary_, item.number)).c_str());
        return true;
    }
    const int32_t conflict = definition_.conflict();
    const bool keep = conflict == RestoreJobDefinition::conflictKeep;
    const bool rename = conflict == RestoreJobDefinition::conflictRename;
    for (int tries = 1;; ++tries) {
        std::wstring target;
        if (!policy_->targetPath(item.path.c_str(), false, target)) {
            return keptFile_ = true;
        }
        if (storage_->restoreFile(item.path.c_str(), target.c_str(), item.number,
                                  !keep && !rename)) {
            return true;
        }
        if (GetLastError() != ERROR_FILE_EXISTS) {
            return false;
        }
        // Somebody else has made the file meanwhile.
        if (keep) {
            return keptFile_ = true;
        }
        if (!rename || tries == renameTries) {
            return false;
        }
    }
}

// With room for the item on both disks it is too large for something else: the file system, say.
bool RestoreTransfer::passes(const Item& item, DWORD code) {
    std::wstring target;
    if (!isDiskFull(code) || !policy_->targetPath(item.path.c_str(), true, target)) {
        return false;
    }
    const uint64_t size = sizeOf(item.data);
    const uint64_t package =
        fitsInMemory(record_.packageSize)
            ? 0
            : record_.packageSize - std::min(record_.packageSize, record_.fileOffset);
    if (services().fits({temporary_, package + spareRoom}, {target, size + spareRoom})) {
        return false;
    }
    log(LogLevel::error, "The disk of {%s} or of {%s} is full, job {%s} waits for room.\n",
        toUtf8(target), toUtf8(temporary_), jobId());
    return true;
}

void RestoreTransfer::givenUp(const Item& item) {
    DeleteFileW(longPath(itemTempPath(temporary_, item.number)).c_str());
}

bool RestoreTransfer::allThrough() {
    JobActivitySourceReader reader;
    if (!reader.open(list_, 0)) {
        return true;
    }
    std::vector<bool> made;
    if (made_) {
        made = made_->all(record_.fileCount + record_.directoryCount);
    }
    const auto isOurs = [&](uint64_t number) {
        return !made_ || (number < made.size() && made[number]);
    };
    while (const uint32_t tag = reader.next()) {
        if (!carryOn()) {
            return false;
        }
        std::wstring path;
        WIN32_FILE_ATTRIBUTE_DATA data{};
        uint64_t number = 0;
        std::wstring target;
        if (tag != tagDirectory || !reader.entry(path, data, number) || !isOurs(number) ||
            !findPlace(path, true, target) || !isDressed(target) ||
            dressRestoredDirectory(target, data)) {
            continue;
        }
        log(LogLevel::error, "Failed to set the times of directory {%s}, error-code = %d, %m.\n",
            toUtf8(target), GetLastError());
    }
    return true;
}

void RestoreTransfer::tidyUp(JobState endCode) {
    // A paused run goes on with what it has received.
    if (endCode != JobState::paused) {
        rm_rf(temporary_, true);
        placing_.finish();
    }
}

bool RestoreTransfer::makeStorage(StorageUse use) {
    StorageRun run = storageRun(use);
    run.placing = &placing_;
    storage_ = createStorage_(run);
    return storage_ != nullptr;
}

bool RestoreTransfer::openStorage() {
    return makeStorage(StorageUse::items) && storage_->start();
}

bool RestoreTransfer::endAtStorage(JobState endCode) {
    return (storage_ || makeStorage(StorageUse::end)) && storage_->end(historyAt(endCode));
}

}  // namespace dorvo

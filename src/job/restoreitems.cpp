#include "job/restoreitems.h"

#include <algorithm>

#include "base/last_error.h"
#include "base/log.h"
#include "base/paths.h"
#include "base/text.h"
#include "base/volume_root.h"
#include "job/restorepathlinks.h"
#include "record/sourcerecord.h"
#include "storage/itemtemppath.h"
#include "storage/restoretarget.h"

namespace dorvo {
namespace {

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

RestoreItems::RestoreItems(RestoreJob& job, JobActivitySourceReader& reader, std::wstring list)
    : TransferItems(job, reader,
                    {"Start of files/directories list.\n", "End of files/directories list.\n",
                     "Skip restore volumn item.\n"}),
      job_(job),
      list_(std::move(list)),
      roots_(job.restore().source(), list_) {
    const RestoreJobDefinition& wanted = job.restore();
    if (wanted.conflict() == RestoreLocationPolicy::keepExisting) {
        made_ = std::make_unique<MadeFolders>(madeFoldersPath(list_));
    }
    if (wanted.target().empty()) {
        policy_ = std::make_unique<RestoreOriginalLocationPolicy>(wanted.conflict());
        return;
    }
    const std::wstring location = withoutTrailing(wanted.target()) + L"\\";
    prefix_ = withoutTrailing(wanted.prefix());
    auto policy =
        std::make_unique<RestoreOtherLocationPolicy>(wanted.conflict(), location.c_str(), prefix_);
    root_ = policy->location();
    dressRoot_ = !prefix_.empty() && !isVolumeRoot(prefix_);
    policy_ = std::move(policy);
}

bool RestoreItems::transfer(const Item& item) {
    std::wstring target;
    if (!findPlace(item.path, item.directory, target)) {
        log(LogLevel::error, "Failed to restore {%s} to {%s}, error-code = %d, %s.\n",
            toUtf8(item.path).c_str(), toUtf8(target).c_str(), static_cast<int>(GetLastError()),
            reason_.c_str());
        return false;
    }
    return item.directory ? restoreDirectory(item, target) : restoreFile(item);
}

bool RestoreItems::findPlace(const std::wstring& path, bool directory, std::wstring& target) {
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
        const std::wstring way = roots_.above(path);
        request.ownWay = way;
        fault = judgeRestorePath(request);
    }
    if (fault == RestorePathFault::none) {
        if (!ownData_.partOf(target)) {
            return true;
        }
        fault = RestorePathFault::ownData;
    }
    reason_ = restorePathText(fault);
    SetLastError(restorePathCode(fault));
    return false;
}

bool RestoreItems::restoreDirectory(const Item& item, const std::wstring& target) {
    if (made_ && made_->last() != item.number) {
        if (isFolder(target)) {
            return true;  // and stays as it is
        }
        if (!made_->add(item.number)) {
            return false;
        }
    }
    if (isDressed(target)) {
        return job_.storage_->restoreDirectory(item.path.c_str(), target.c_str());
    }
    bool existed = false;
    if (makeRestoredDirectory(target, existed)) {
        return true;
    }
    LastErrorGuard keep;
    log(LogLevel::error, "Failed to create directory {%s}, error-code = %d, %m.\n",
        toUtf8(target).c_str(), static_cast<int>(keep.error()));
    return false;
}

bool RestoreItems::restoreFile(const Item& item) {
    if (job_.placing_.isPlaced(record_.instanceId, item.number)) {
        // The run was killed between the last step of this item and its next position.
        DeleteFileW(
            longPath(itemTempPath(itemTempFolder(job_.definition().id()), item.number)).c_str());
        return true;
    }
    const int32_t conflict = job_.restore().conflict();
    const bool keep = conflict == RestoreLocationPolicy::keepExisting;
    const bool rename = conflict == RestoreLocationPolicy::renameNew;
    for (int tries = 1;; ++tries) {
        std::wstring target;
        if (!policy_->targetPath(item.path.c_str(), false, target)) {
            return keptFile_ = true;
        }
        if (job_.storage_->restoreFile(item.path.c_str(), target.c_str(), item.number,
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
bool RestoreItems::passes(const Item& item, DWORD code) {
    std::wstring target;
    if (!isDiskFull(code) || !policy_->targetPath(item.path.c_str(), true, target)) {
        return false;
    }
    const uint64_t size = uint64_t{item.data.nFileSizeHigh} << 32 | item.data.nFileSizeLow;
    const uint64_t package =
        record_.packageSize - std::min(record_.packageSize, record_.fileOffset);
    const std::wstring temporary = itemTempFolder(job_.definition().id());
    if (job_.fits({temporary, package + spareRoom}, {target, size + spareRoom})) {
        return false;
    }
    log(LogLevel::error, "The disk of {%s} or of {%s} is full, job {%s} waits for room.\n",
        toUtf8(target).c_str(), toUtf8(temporary).c_str(), job_.definition().id().c_str());
    return true;
}

bool RestoreItems::allThrough() {
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
        if (!job_.pollEvent(0)) {
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
            toUtf8(target).c_str(), static_cast<int>(GetLastError()));
    }
    return true;
}

}  // namespace dorvo

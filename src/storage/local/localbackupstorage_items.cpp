// Where the packages of a backup's items go: behind the instance's others, then into its index.
#include <algorithm>

#include "base/file_bytes.h"
#include "base/log.h"
#include "base/text.h"
#include "storage/item_attributes.h"
#include "storage/local/localbackupstorage.h"
#include "storage/local/localerror.h"
#include "storage/local/localinstancewriter.h"
#include "storage/local/localpath.h"

namespace dorvo {

bool LocalBackupStorage::backup(const wchar_t* path, const WIN32_FILE_ATTRIBUTE_DATA& data,
                                uint32_t number, const wchar_t* readFrom) {
    FunctionTrace trace("LocalBackupStorage::backup", "localbackupstorage.cpp");
    if (!ready("back up an item of job")) {
        return false;
    }
    SentItem item(path, data, number, readFrom, temporary_);
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
    const FileHandle package = item.openPackage();
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
        if (!readFileAt(package.get(), offset, block)) {
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

// What the storage does with one item: encode it, lay its package behind the others, note it.
#include <algorithm>
#include <span>

#include "base/file_bytes.h"
#include "base/handle.h"
#include "base/last_error.h"
#include "base/log.h"
#include "base/md5.h"
#include "base/paths.h"
#include "base/text.h"
#include "storage/item_attributes.h"
#include "storage/itemtemppath.h"
#include "storage/local/localbackupstorage.h"
#include "storage/local/localerror.h"
#include "storage/local/localinstancewriter.h"
#include "storage/local/localpath.h"

namespace dorvo {
struct LocalBackupStorage::Item {
    std::u16string path;  // as the index knows it
    std::string name;     // for the log
    const WIN32_FILE_ATTRIBUTE_DATA& data;
    bool directory;
    std::wstring source;   // where it is read from
    std::wstring package;  // on its way; empty for a directory
};

bool LocalBackupStorage::backup(const wchar_t* path, const WIN32_FILE_ATTRIBUTE_DATA& data,
                                uint32_t number, const wchar_t* readFrom) {
    FunctionTrace trace("LocalBackupStorage::backup", "localbackupstorage.cpp");
    if (!ready("back up an item of job")) {
        return false;
    }
    const bool directory = (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    const Item item{localPath(path),
                    toUtf8(path),
                    data,
                    directory,
                    readFrom == nullptr ? path : readFrom,
                    directory ? std::wstring() : itemTempPath(temporary_, number)};
    log(LogLevel::debug, "Backing up {%s}.\n", item.name.c_str());
    beginWork();
    progress_.claim(number);
    const bool done = store(item);
    if (!done) {
        SetLastError(errorOf(GetLastError()));
        failedNear(place_.location());
        const DWORD error = GetLastError();
        if (interrupter::interrupted()) {
            // Whatever fails while the job must stop has failed because of that.
            SetLastError(ERROR_CANCELLED);
            log(LogLevel::information, "Backing up {%s} is cancelled, error-code = %d.\n",
                item.name.c_str(), static_cast<int>(error));
        } else {
            logFailure("back up", item.name);
        }
    }
    if (!directory) {
        const LastErrorGuard keep;
        DeleteFileW(longPath(item.package).c_str());
    }
    return done;
}

bool LocalBackupStorage::store(const Item& item) {
    LocalRecord record;
    record.kind = item.directory ? LocalRecord::Kind::folder : LocalRecord::Kind::file;
    record.attributes = itemAttributes(item.data);
    record.path = item.path;
    if (!item.directory) {
        std::string md5;
        if (!encode(item, record.size) || !copy(item, record.size, md5)) {
            return false;
        }
        record.compress = task_.compress;
        record.md5 = digestBytes(md5);
    }
    return writer_->append(std::move(record)) || failedIn(place_.location());
}

bool LocalBackupStorage::encode(const Item& item, uint64_t& size) {
    progress_.encoding(sizeOf(item.data));
    const bool encoded =
        transformation_.transform(item.source.c_str(), item.package.c_str(), &item.data, this);
    WIN32_FILE_ATTRIBUTE_DATA package{};
    if (!encoded || !readAttributes(item.package, package)) {
        return false;
    }
    // The blocks that are there are of the package that an earlier run made. A file that has
    // changed since it was listed makes another one, so it starts anew.
    size = sizeOf(package);
    if (activity_->acceptedBlocks != 0 &&
        (activity_->packageSize != size || !isAsListed(item.source, item.data))) {
        progress_.backTo(0, 0);
    }
    progress_.transferring(size, 0);
    return true;
}

bool LocalBackupStorage::copy(const Item& item, uint64_t size, std::string& md5) {
    const FileHandle package(CreateFileW(longPath(item.package).c_str(), GENERIC_READ,
                                         FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                         FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!package) {
        return false;
    }
    Md5 digest;
    for (uint64_t offset = 0; offset < size; offset += uploadBlockSize) {
        if (interrupter::interrupted()) {
            SetLastError(ERROR_CANCELLED);
            return false;
        }
        const auto block = std::span(block_).first(
            static_cast<size_t>(std::min<uint64_t>(uploadBlockSize, size - offset)));
        if (!readFileAt(package.get(), offset, block)) {
            return false;
        }
        digest.update(block);
        if (!copyBlock(offset, block)) {
            return failedIn(place_.location());
        }
    }
    md5 = digest.final();
    return true;
}

// A block that an earlier run has written is not written again, if it is really there.
bool LocalBackupStorage::copyBlock(uint64_t offset, std::span<const std::byte> block) {
    const auto before = static_cast<uint32_t>(offset / uploadBlockSize);
    if (before < activity_->acceptedBlocks) {
        const auto stored = std::span(stored_).first(block.size());
        if (writer_->readPackage(offset, stored) &&
            std::equal(stored.begin(), stored.end(), block.begin())) {
            progress_.found(block.size());
            return true;
        }
        progress_.backTo(before, offset);
    }
    if (!writer_->writePackage(offset, block)) {
        return false;
    }
    progress_.accepted(before + 1, block.size());
    return true;
}

}  // namespace dorvo

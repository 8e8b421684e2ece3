#include "storage/itemfetcher.h"

#include <algorithm>

#include "base/disk_room.h"
#include "base/log.h"
#include "base/paths.h"
#include "base/text.h"
#include "storage/item_attributes.h"
#include "storage/items.h"
#include "storage/itemtemppath.h"

namespace dorvo {
namespace {

uint32_t blocksOf(uint64_t bytes) {
    return static_cast<uint32_t>(bytes / uploadBlockSize + (bytes % uploadBlockSize != 0 ? 1 : 0));
}

}  // namespace

static_assert(malformedBlock == 0x20010258);

void storeBlock(HANDLE package, std::span<const std::byte> block, const std::string& name,
                uint64_t offset, ItemProgress& progress) {
    const auto length = static_cast<DWORD>(block.size());
    DWORD written = 0;
    DWORD error =
        WriteFile(package, block.data(), length, &written, nullptr) != 0 ? 0 : GetLastError();
    if (error == 0 && written != length) {
        error = ERROR_DISK_FULL;  // a full disk takes a part and calls that a success
    }
    if (error == 0) {
        progress.accepted(blocksOf(offset + length), length);
    } else {
        SetLastError(error);
        log(LogLevel::error, "Failed to write file, file {%s}, offset {%Q}, error-code = %d, %m.\n",
            name, offset, error);
        progress.moved(written);
    }
    SetLastError(error);
}

FetchedItem::FetchedItem(const RestoreTask& task, const std::wstring& original,
                         const std::wstring& targetPath, uint32_t listNumber,
                         const std::wstring& folder)
    : path(original),
      name(withoutTrailingBackslash(toUtf8(original))),
      place(toUtf8(targetPath)),
      number(listNumber),
      package(itemTempPath(folder, listNumber)),
      target(targetPath, task.activity->instanceId, listNumber, task.placing) {}

ItemFetcher::ItemFetcher(const RestoreTask& task, std::wstring folder, ResumeBy resume,
                         interrupter& stop, BlockSource& source)
    : record_(task.activity),
      progress_(task.activity),
      folder_(std::move(folder)),
      resume_(resume),
      stop_(stop),
      source_(source),
      plain_(false),
      compressed_(true) {
    for (RestoreTransformation* transformation : {&plain_, &compressed_}) {
        transformation->key = task.key.key;
        transformation->iv = task.key.iv;
    }
}

bool ItemFetcher::stopped(FetchStep step, const FetchedItem& item) const {
    if (!stop_.interrupted()) {
        return false;
    }
    SetLastError(ERROR_CANCELLED);
    source_.failed(step, item);
    return true;
}

bool ItemFetcher::done(bool success, FetchStep step, const FetchedItem& item) const {
    if (!success) {
        source_.failed(step, item);
    }
    return success;
}

bool ItemFetcher::fetch(FetchedItem& item, bool replace) {
    progress_.claim(item.number);
    if (stopped(FetchStep::next, item) ||
        !done(item.target.makeParents(), FetchStep::parents, item)) {
        return false;
    }
    log(LogLevel::debug, "Parent directories restored.\n");
    if (stopped(FetchStep::next, item) || !find(item) || stopped(FetchStep::next, item) ||
        !hasRoom(item) || !bring(item) || stopped(FetchStep::next, item)) {
        return false;
    }
    dress(item);
    if (!done(item.target.place(replace), FetchStep::place, item)) {
        return false;
    }
    if (!item.inMemory() && DeleteFileW(longPath(item.package).c_str()) == 0) {
        log(LogLevel::warning, "Failed to delete temporary file {%s}, error-code = %d, %m.\n",
            toUtf8(item.package), GetLastError());
    }
    return true;
}

// What is on record of blocks and of an offset belongs to a package of the size on record. Blocks
// come whole: what a run that was killed has received of one is received again.
bool ItemFetcher::find(FetchedItem& item) {
    if (!done(source_.find(item), FetchStep::find, item)) {
        return false;
    }
    log(LogLevel::debug, "File information restored.\n");
    const uint64_t size = item.size;
    uint64_t offset = resume_ == ResumeBy::offset
                          ? record_->fileOffset
                          : std::min(uint64_t{record_->acceptedBlocks} * uploadBlockSize, size);
    if (record_->packageSize != size || offset > size) {
        offset = 0;
    } else if (offset != size) {
        offset -= offset % uploadBlockSize;
    }
    progress_.transferring(size, offset);
    return true;
}

// Asked before anything is received: it would all be fetched for nothing.
bool ItemFetcher::hasRoom(const FetchedItem& item) const {
    if (fitsOnDisk({folder_, item.inMemory() ? 0 : item.size - record_->fileOffset},
                   item.target.need(sizeOf(item.data)))) {
        return true;
    }
    SetLastError(ERROR_DISK_FULL);
    return done(false, FetchStep::room, item);
}

bool ItemFetcher::bring(FetchedItem& item) {
    uint64_t kept = 0;
    if (!receive(item, kept)) {
        return false;  // what has come stays, whatever an answer was
    }
    const bool whole = source_.check(item);
    if (whole && decode(item)) {
        return true;
    }
    if (!whole && kept == 0) {
        return done(false, FetchStep::block, item);
    }
    if (kept == 0 || GetLastError() != ERROR_INVALID_DATA) {
        return false;
    }
    log(LogLevel::warning,
        "What was received of file {%s} before is damaged, it is fetched again.\n", item.name);
    progress_.backTo(0, 0);
    progress_.transferring(item.size, 0);
    return receive(item, kept) && done(source_.check(item), FetchStep::block, item) && decode(item);
}

// `kept`: the bytes that an earlier run has received.
bool ItemFetcher::receive(const FetchedItem& item, uint64_t& kept) {
    if (item.inMemory()) {
        return receiveInMemory(item);
    }
    const FileHandle package(CreateFileW(longPath(item.package).c_str(),
                                         GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                         OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!done(static_cast<bool>(package), FetchStep::open, item)) {
        return false;
    }
    log(LogLevel::debug, "Target file {%s} created.\n", toUtf8(item.package));
    if (!done(takeUp(item, package.get(), kept), FetchStep::block, item)) {
        return false;
    }
    log(LogLevel::debug, "Start to download file data.\n");
    if (!receiveBlocks(item, package.get())) {
        return false;
    }
    log(LogLevel::debug, "File {%s} downloaded.\n", item.name);
    return true;
}

bool ItemFetcher::receiveInMemory(const FetchedItem& item) {
    uint64_t none = 0;
    block_ = {};
    progress_.backTo(0, 0);
    log(LogLevel::debug, "Start to download file data.\n");
    if (!done(
            source_.begin(item, nullptr, none) && (item.size == 0 || source_.get(item, 0, block_)),
            FetchStep::block, item)) {
        return false;
    }
    if (block_.size() != item.size) {
        SetLastError(malformedBlock);
        return done(false, FetchStep::block, item);
    }
    progress_.accepted(1, item.size);
    log(LogLevel::debug, "File data {%Q} to {%Q} downloaded.\n", uint64_t{0}, item.size);
    log(LogLevel::debug, "File {%s} downloaded.\n", item.name);
    return true;
}

bool ItemFetcher::takeUp(const FetchedItem& item, HANDLE package, uint64_t& kept) {
    kept = record_->fileOffset;
    LARGE_INTEGER size{};
    if (GetFileSizeEx(package, &size) == 0 || static_cast<uint64_t>(size.QuadPart) < kept) {
        log(LogLevel::warning, "File size is smaller than file offset recorded by job activity.\n");
        kept = 0;
    }
    if (!source_.begin(item, package, kept)) {
        return false;
    }
    if (!seekFile(package, kept)) {
        log(LogLevel::error, "Failed to seek file to {%Q}.\n", kept);
        kept = 0;
        if (!source_.begin(item, package, kept)) {
            return false;
        }
        seekFile(package, 0);
    }
    progress_.backTo(blocksOf(kept), kept);
    return true;
}

// Counts by itself what has come: neither the number of blocks that the source names nor the length
// of one is believed.
bool ItemFetcher::receiveBlocks(const FetchedItem& item, HANDLE package) {
    while (record_->fileOffset < item.size) {
        if (stopped(FetchStep::block, item)) {
            return false;
        }
        const uint64_t begin = record_->fileOffset;
        const uint64_t end = begin + std::min<uint64_t>(uploadBlockSize, item.size - begin);
        std::span<const std::byte> block;
        if (!done(source_.get(item, begin, block), FetchStep::block, item)) {
            return false;
        }
        storeBlock(package, block, item.name, begin, progress_);
        const DWORD left = GetLastError();
        if (left != ERROR_SUCCESS || record_->fileOffset != end) {
            progress_.backTo(blocksOf(begin), begin);
            SetLastError(left != ERROR_SUCCESS ? left : DWORD{malformedBlock});
            return done(false, FetchStep::block, item);
        }
        log(LogLevel::debug, "File data {%Q} to {%Q} downloaded.\n", begin, end);
    }
    // What an earlier run has left behind the package's end.
    return done(SetEndOfFile(package) != 0, FetchStep::block, item);
}

bool ItemFetcher::decode(FetchedItem& item) {
    if (stopped(FetchStep::toDecode, item)) {
        return false;
    }
    log(LogLevel::debug, "Start to decrypt/decompress file {%s}.\n", item.name);
    if (resume_ == ResumeBy::blocks) {
        progress_.encoding(item.size);
    } else {
        progress_.state(CurrentFileState::encoding);
    }
    RestoreTransformation& with = item.compressed ? compressed_ : plain_;
    if (!done(item.inMemory() ? item.target.decode(block_, item.package, with)
                              : item.target.decode(item.package, with, &stop_),
              FetchStep::decode, item)) {
        return false;
    }
    progress_.encoded(item.size);
    log(LogLevel::debug, "File {%s} decrypted/decompressed.\n", item.name);
    return true;
}

// The content is worth more than what it is dressed with.
void ItemFetcher::dress(FetchedItem& item) const {
    done(item.target.setAttributes(item.data.dwFileAttributes), FetchStep::attributes, item);
    if (done(item.target.openToSetTimes(), FetchStep::openToSetTimes, item)) {
        done(item.target.setTimes(item.data), FetchStep::times, item);
    }
}

}  // namespace dorvo

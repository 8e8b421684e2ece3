#include "storage/local/localpackages.h"

#include <span>
#include <vector>

#include "base/files.h"
#include "base/last_error.h"
#include "base/log.h"
#include "base/paths.h"
#include "base/text.h"
#include "base/uuid.h"
#include "storage/local/localerror.h"
#include "storage/local/localindexreader.h"
#include "storage/local/localrecord.h"

namespace dorvo {
namespace {

FileHandle openPackages(const LocalPlace& place, const LocalInstanceId& id) {
    return FileHandle(CreateFileW(longPath(place.packages(instanceText(id))).c_str(), GENERIC_READ,
                                  FILE_SHARE_READ, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL,
                                  nullptr));
}

bool liesIn(const LocalRecord& record, uint64_t size) {
    return record.size <= size && record.offset <= size - record.size;
}

}  // namespace

bool LocalPackages::holds(const LocalRecord& record) {
    const Container& found = container(record.container);
    return liesIn(record, found.size) && !found.damaged.contains(record.offset);
}

const LocalPackages::Container& LocalPackages::container(const LocalInstanceId& id) {
    const auto [found, isNew] = containers_.try_emplace(id);
    if (isNew) {
        const FileHandle file = openPackages(place_, id);
        if (file) {
            fileSize(file.get(), found->second.size);
        }
        // As far as the notes are whole.
        LocalIndexReader notes;
        LocalRecord record;
        if (notes.open(place_.damaged(instanceText(id)))) {
            while (notes.next(record)) {
                found->second.damaged.insert(record.offset);
            }
        }
    }
    return found->second;
}

void LocalPackages::noteDamage(const LocalRecord& record) {
    const LastErrorGuard keep;
    const std::string path = toUtf8(widePath(record.path));
    if (!holds(record)) {
        return;
    }
    if (!append(record)) {
        logFailure("note the damaged package of", path);
        return;
    }
    containers_[record.container].damaged.insert(record.offset);
    log(LogLevel::warning,
        "The package of {%s} is damaged: the next backup stores the file again.\n", path);
}

bool LocalPackages::append(const LocalRecord& record) {
    const std::wstring path = place_.damaged(instanceText(record.container));
    const FileHandle file(CreateFileW(longPath(path).c_str(), GENERIC_READ | GENERIC_WRITE,
                                      FILE_SHARE_READ, nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL,
                                      nullptr));
    const auto magic = std::as_bytes(std::span(localIndexMagic));
    std::vector<std::byte> bytes;
    if (!file || !encodeLocalRecord(record, bytes)) {
        return false;
    }
    // Behind the whole notes: one that was torn would hide those behind it.
    LocalIndexReader notes;
    LocalRecord note;
    uint64_t end = magic.size();
    if (notes.open(file.get())) {
        while (notes.next(note)) {
        }
        end = notes.offset();
    } else if (!writeFileAt(file.get(), 0, magic)) {
        return false;
    }
    return writeFileAt(file.get(), end, bytes) && resizeFile(file.get(), end + bytes.size()) &&
           FlushFileBuffers(file.get()) != 0;
}

HANDLE LocalPackages::open(const LocalRecord& record) {
    if (!file_ || opened_ != record.container) {
        file_ = openPackages(place_, record.container);
        opened_ = record.container;
    }
    uint64_t size = 0;
    if (!file_ || !fileSize(file_.get(), size)) {
        return INVALID_HANDLE_VALUE;
    }
    if (!liesIn(record, size)) {
        SetLastError(ERROR_INVALID_DATA);
        return INVALID_HANDLE_VALUE;
    }
    return file_.get();
}

}  // namespace dorvo

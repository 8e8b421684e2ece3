// What a run that goes on has in its index of the items of its source list.
#include <functional>

#include "base/file_bytes.h"
#include "base/text.h"
#include "record/jobactsrcreader.h"
#include "record/sourcerecord.h"
#include "storage/local/localindexreader.h"
#include "storage/local/localinstancewriter.h"
#include "storage/local/localpath.h"

namespace dorvo {
namespace {

constexpr unsigned itemsPerPoll = 4096;

struct ListedItem {
    LocalRecord::Kind kind = LocalRecord::Kind::file;
    std::u16string path;

    bool is(const LocalRecord& record) const { return record.kind == kind && record.path == path; }
};

bool damaged() {
    SetLastError(ERROR_INVALID_DATA);
    return false;
}

bool readItem(const JobActivitySourceReader& list, uint32_t tag, ListedItem& item) {
    std::wstring path;
    WIN32_FILE_ATTRIBUTE_DATA data{};
    uint64_t number = 0;
    if (!list.entry(path, data, number)) {
        return false;
    }
    item.kind = tag == tagFile ? LocalRecord::Kind::file : LocalRecord::Kind::folder;
    item.path = localPath(path);
    return true;
}

// The items in front of the run's place, up to the first that `isThere` denies.
bool eachListed(const LocalInstanceWriter::Expected& expected, const interrupter& stop,
                const std::function<bool(const ListedItem&)>& isThere) {
    const auto place = static_cast<int64_t>(expected.position);
    JobActivitySourceReader list;
    if (place != 0 && !list.open(expected.list, 0)) {
        return false;
    }
    ListedItem item;
    int64_t offset = 0;
    for (unsigned count = 1; offset < place; ++count) {
        const uint32_t tag = list.next();
        if (tag == 0) {
            return damaged();  // it ends before the place where the run stands
        }
        if ((tag == tagFile || tag == tagDirectory) &&
            (!readItem(list, tag, item) || !isThere(item))) {
            return false;
        }
        if (count % itemsPerPoll == 0 && stop.interrupted()) {
            SetLastError(ERROR_CANCELLED);
            return false;
        }
        offset = list.offset();
        if (offset < 0) {
            return false;
        }
    }
    return offset == place || damaged();
}

}  // namespace

bool LocalInstanceWriter::keepItems(const Expected& expected, const interrupter& stop) {
    LocalIndexReader index;
    if (!index.open(index_.get(), indexEnd_)) {
        return false;
    }
    LocalRecord stored;
    uint64_t begin = 0;  // of the record in the index; its end when there is no other item
    const auto nextStored = [&] {
        do {
            begin = index.offset();
            if (!index.next(stored)) {
                return GetLastError() == ERROR_HANDLE_EOF;
            }
        } while (!isOwnItem(stored));
        return true;
    };
    const auto isThere = [&](const ListedItem& item) {
        if (begin < indexEnd_ && item.is(stored)) {
            return nextStored();
        }
        return expected.failed->contains(toUtf8(widePath(item.path))) || damaged();
    };
    if (!nextStored() || !eachListed(expected, stop, isThere)) {
        return false;
    }
    return begin == indexEnd_ || (resizeFile(index_.get(), begin) && load());
}

}  // namespace dorvo

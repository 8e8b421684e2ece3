#include "storage/local/localpackages.h"

#include "base/paths.h"
#include "storage/local/localfile.h"

namespace dorvo {
namespace {

FileHandle openPackages(const LocalPlace& place, const LocalInstanceId& id) {
    return FileHandle(CreateFileW(longPath(place.packages(localInstanceText(id))).c_str(),
                                  GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                  FILE_ATTRIBUTE_NORMAL, nullptr));
}

bool liesIn(const LocalRecord& record, uint64_t size) {
    return record.size <= size && record.offset <= size - record.size;
}

}  // namespace

bool LocalPackages::holds(const LocalRecord& record) {
    auto found = sizes_.find(record.container);
    if (found == sizes_.end()) {
        const FileHandle file = openPackages(place_, record.container);
        uint64_t size = 0;
        if (file) {
            localFileSize(file.get(), size);
        }
        found = sizes_.emplace(record.container, size).first;
    }
    return liesIn(record, found->second);
}

HANDLE LocalPackages::open(const LocalRecord& record) {
    if (!file_ || opened_ != record.container) {
        file_ = openPackages(place_, record.container);
        opened_ = record.container;
    }
    uint64_t size = 0;
    if (!file_ || !localFileSize(file_.get(), size)) {
        return INVALID_HANDLE_VALUE;
    }
    if (!liesIn(record, size)) {
        SetLastError(ERROR_INVALID_DATA);
        return INVALID_HANDLE_VALUE;
    }
    return file_.get();
}

}  // namespace dorvo

#include "storage/local/localincrementcheck.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "base/error_codes.h"
#include "base/interrupter.h"
#include "base/log.h"
#include "base/paths.h"
#include "storage/local/localdrop.h"
#include "storage/local/localerror.h"
#include "storage/local/localindexreader.h"
#include "storage/local/localinstancewriter.h"
#include "storage/local/localpackages.h"
#include "storage/local/localplace.h"
#include "storage/local/localrecord.h"

namespace dorvo {

// The files of a job's last completed backup, to be found by path. Holds 16 bytes a record of its
// index, which must not change; the rest is read when it is asked for. False leaves the last error.
class LocalBase {
public:
    LocalBase(const LocalPlace& place, const LocalInstanceDocument& document)
        : place_(place), document_(document), packages_(place) {}

    // Reads the index. 13 for damage, 1223 for a stop.
    bool load(const interrupter& stop);

    // The record of the file if its last write was at that time, its package is whole, and it did
    // not fail.
    bool find(std::u16string_view path, uint64_t lastWrite, std::optional<LocalRecord>& found);

private:
    struct Entry {
        uint64_t hash;  // of the path
        uint64_t offset;
        auto operator<=>(const Entry&) const = default;  // NOLINT(modernize-use-nullptr)
    };
    static_assert(sizeof(Entry) == 16);

    LocalPlace place_;
    LocalInstanceDocument document_;
    LocalPackages packages_;
    LocalIndexReader index_;
    std::vector<Entry> entries_;  // in order
};

namespace {

constexpr size_t recordsPerPoll = 4096;

// FNV-1a. Paths that share a hash are told apart by their records.
uint64_t hashOf(std::u16string_view path) {
    uint64_t hash = 14'695'981'039'346'656'037U;
    for (const char16_t unit : path) {
        hash = (hash ^ (unit & 0xFFU)) * 1'099'511'628'211U;
        hash = (hash ^ (unit >> 8U)) * 1'099'511'628'211U;
    }
    return hash;
}

bool isOfPath(LocalRecord::Kind kind) {
    return kind == LocalRecord::Kind::file || kind == LocalRecord::Kind::failed;
}

bool isLost(DWORD error) {
    return isDamage(error) || isNotFound(error);
}

}  // namespace

bool LocalBase::load(const interrupter& stop) {
    const std::string& id = document_.id;
    if (!index_.open(place_.index(id), document_.indexSize)) {
        return false;
    }
    entries_.reserve(static_cast<size_t>(
        std::min(document_.records, document_.indexSize / localRecordFixedSize)));
    LocalRecord record;
    for (size_t count = 1;; ++count) {
        const uint64_t offset = index_.offset();
        if (!index_.next(record)) {
            break;
        }
        if (isOfPath(record.kind)) {
            entries_.push_back({hashOf(record.path), offset});
        }
        if (count % recordsPerPoll == 0 && stop.interrupted()) {
            SetLastError(ERROR_CANCELLED);
            return false;
        }
    }
    if (GetLastError() != ERROR_HANDLE_EOF) {
        return false;
    }
    std::sort(entries_.begin(), entries_.end());
    return true;
}

bool LocalBase::find(std::u16string_view path, uint64_t lastWrite,
                     std::optional<LocalRecord>& found) {
    found.reset();
    const uint64_t hash = hashOf(path);
    // The last record of a path counts.
    auto entry = std::upper_bound(entries_.begin(), entries_.end(), Entry{hash, UINT64_MAX});
    while (entry != entries_.begin() && (--entry)->hash == hash) {
        LocalRecord record;
        index_.seek(entry->offset);
        if (!index_.next(record)) {
            return false;
        }
        if (record.path != path) {
            continue;
        }
        if (record.kind == LocalRecord::Kind::file && record.lastWrite() == lastWrite &&
            packages_.holds(record)) {
            found = std::move(record);
        }
        break;
    }
    return true;
}

LocalIncrementCheck::LocalIncrementCheck(LocalPlace place, const BackupTask& task)
    : place_(std::move(place)),
      instanceId_(task.instanceId()),
      keyMd5_(keyMd5(task.key)),
      stop_(task.stop) {}

LocalIncrementCheck::~LocalIncrementCheck() = default;

bool LocalIncrementCheck::check(const std::vector<File>& files, std::vector<bool>& send) {
    FunctionTrace trace("LocalIncrementCheck::check", "localincrementcheck.cpp");
    if (!writer_ && !place_.checkToWrite()) {
        return false;
    }
    if ((writer_ || begin()) && judge(files, send)) {
        return true;
    }
    failedIn(place_.location());
    return logFailure("do increment check of job", place_.jobId());
}

bool LocalIncrementCheck::begin() {
    if (instanceId_.empty()) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return false;
    }
    LocalPlace::Newest newest;
    if (!place_.newest(instanceId_, newest)) {
        return false;
    }
    std::unique_ptr<LocalBase> base;
    if (!newest.completed.id.empty()) {
        if (newest.completed.keyMd5 != keyMd5_) {
            SetLastError(errorKeyForeign);
            return false;
        }
        base = std::make_unique<LocalBase>(place_, newest.completed);
        if (!base->load(stop_)) {
            if (!isLost(GetLastError())) {
                return false;
            }
            // Its files are stored again, so that it does not keep the job from any more backups.
            logFailure("read the index of backup", newest.completed.id);
            base.reset();
        }
    }
    LocalInstanceDocument document;
    auto writer = LocalInstanceWriter::open(place_, instanceId_, document);
    if (!writer) {
        return false;
    }
    // The instance has to be started again, with what the new list carries over and awaits.
    if ((DeleteFileW(longPath(place_.document(instanceId_)).c_str()) == 0 &&
         GetLastError() != ERROR_FILE_NOT_FOUND) ||
        !writer->reset()) {
        return false;
    }
    sweepPlace(place_, newest);
    base_ = std::move(base);
    writer_ = std::move(writer);
    return true;
}

bool LocalIncrementCheck::judge(const std::vector<File>& files, std::vector<bool>& send) {
    std::vector<LocalRecord> carried;
    std::vector<LocalRecord> awaited;
    std::vector<bool> answer;
    for (const File& file : files) {
        const std::u16string path = localPath(file.path);
        std::optional<LocalRecord> record;
        if (base_ && !base_->find(path, file.lastWriteTime, record)) {
            return false;
        }
        answer.push_back(!record);
        if (record) {
            carried.push_back(std::move(*record));
        } else {
            LocalRecord missing;
            missing.kind = LocalRecord::Kind::awaited;
            missing.path = path;
            awaited.push_back(std::move(missing));
        }
    }
    if (stop_.interrupted()) {
        SetLastError(ERROR_CANCELLED);
        return false;
    }
    if (!writer_->plan(carried, awaited)) {
        return false;
    }
    send = std::move(answer);
    return true;
}

}  // namespace dorvo

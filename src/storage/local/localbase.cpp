#include "storage/local/localbase.h"

#include <algorithm>

namespace dorvo {
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

}  // namespace dorvo

// The files of a job's last completed backup, to be found by path.
//
// Holds 16 bytes a record of its index, which must not change; the rest is read when it is asked
// for. False leaves the last error. One thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "base/interrupter.h"
#include "storage/local/localindexreader.h"
#include "storage/local/localpackages.h"
#include "storage/local/localplace.h"

namespace dorvo {

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

}  // namespace dorvo

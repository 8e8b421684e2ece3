// Finds records in an index whose order is, mostly, that in which they are asked for: looks on from
// the last one that was found, and only then from the beginning. Holds one record at a time.
//
// False leaves the last error. One thread.
#pragma once

#include <string>
#include <string_view>

#include "base/interrupter.h"
#include "storage/local/localindexreader.h"

namespace dorvo {

class LocalIndexCursor {
public:
    // `stop` is borrowed and may be null; it is asked now and then.
    explicit LocalIndexCursor(const interrupter* stop = nullptr) : stop_(stop) {}

    // The index must not change while the object lives.
    LocalIndexReader& reader() { return reader_; }

    // The record of this kind and path. 2 when there is none, 13 for damage, 1223 for a stop.
    bool find(std::u16string_view path, LocalRecord::Kind kind, LocalRecord& record);

private:
    bool scan(uint64_t end, std::u16string_view path, LocalRecord::Kind kind, LocalRecord& record);

    LocalIndexReader reader_;
    const interrupter* stop_;  // borrowed
};

}  // namespace dorvo

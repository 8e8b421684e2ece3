// Reads the records of an index file, one after the other, from a place, or by their paths.
//
// False leaves the last error: 13 for damage. Nothing is logged. One thread.
#pragma once

#include <windows.h>

#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

#include "base/handle.h"
#include "base/interrupter.h"
#include "storage/local/localrecord.h"

namespace dorvo {

class LocalIndexReader {
public:
    static constexpr uint64_t wholeFile = std::numeric_limits<uint64_t>::max();

    // `size` is what the index must have; anything behind it is not looked at. A shorter one is
    // damaged.
    bool open(const std::wstring& path, uint64_t size = wholeFile);
    // The same of an open file, which is borrowed.
    bool open(HANDLE file, uint64_t size = wholeFile);

    // The next record; 38 at the end.
    bool next(LocalRecord& record);
    // Where the next record begins.
    uint64_t offset() const { return offset_; }
    void seek(uint64_t offset) { offset_ = offset; }
    // Where the first record begins.
    static uint64_t begin() { return localIndexMagic.size(); }

private:
    // Makes the bytes at offset_ stand in the buffer, as many as there are up to `count`.
    bool have(size_t count, std::span<const std::byte>& bytes);

    FileHandle own_;
    HANDLE file_ = INVALID_HANDLE_VALUE;
    uint64_t size_ = 0;
    uint64_t offset_ = 0;
    std::vector<std::byte> buffer_;
    uint64_t bufferAt_ = 0;  // of the file
};

// Finds records in an index whose order is, mostly, that in which they are asked for: looks on from
// the last one that was found, and only then from the beginning. Holds one record at a time. One
// thread.
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

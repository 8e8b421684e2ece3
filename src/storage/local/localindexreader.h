// Reads the records of an index file, one after the other or from a place.
//
// False leaves the last error: 13 for damage. Nothing is logged. One thread.
#pragma once

#include <windows.h>

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "base/handle.h"
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

}  // namespace dorvo

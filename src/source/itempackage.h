// The package of one item between its making and its sending: in memory as long as it is small, in
// a temporary file when it becomes larger. Most files are small, and a file made, read and deleted
// for each of them costs a third of what is done with it.
//
// Written once, as a stream buffer, then read as often as is wanted. begin() makes it the next
// item's; the memory stays. One thread. A file that cannot be made is logged. False leaves the last
// error.
#pragma once

#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <streambuf>
#include <string>
#include <vector>

#include "base/handle.h"

namespace dorvo {

class ItemPackage : private std::streambuf {
public:
    static constexpr size_t mostInMemory = size_t{1} << 20;

    // What the package holds, from its first byte. Borrows the package, which must stay as it is.
    class Reader {
    public:
        explicit Reader(std::span<const char> memory) : memory_(memory), open_(true) {}
        explicit Reader(FileHandle file) : file_(std::move(file)), open_(file_) {}

        explicit operator bool() const { return open_; }
        // The next bytes; `got` is less than was asked for at the end alone.
        bool read(std::span<std::byte> into, DWORD& got);
        bool seek(uint64_t offset);

    private:
        std::span<const char> memory_;
        size_t at_ = 0;
        FileHandle file_;  // none while the package is in memory
        bool open_;
    };

    ItemPackage() = default;
    // Takes the file away.
    ~ItemPackage() override;
    ItemPackage(const ItemPackage&) = delete;
    ItemPackage& operator=(const ItemPackage&) = delete;

    // Empty again. `path` is that of the file, should there have to be one.
    void begin(std::wstring path);
    // Takes bytes until end(). Fails for good with the first that cannot be kept.
    std::streambuf& buffer() { return *this; }
    // All bytes are written.
    bool end();
    // The code of what failed.
    DWORD error() const { return error_; }

    const std::wstring& path() const { return path_; }
    bool measure(uint64_t& size) const;
    // Not open, with the last error, when the file cannot be.
    Reader open() const;
    // Takes the file away, where there is one.
    bool remove();

private:
    int_type overflow(int_type c) override;
    std::streamsize xsputn(const char* bytes, std::streamsize count) override;
    bool writeOut();

    std::vector<char> memory_;  // all of the package, or what the file still lacks
    std::wstring path_;
    FileHandle file_;      // while it is written
    bool inFile_ = false;  // there may be a file
    DWORD error_ = ERROR_SUCCESS;
};

}  // namespace dorvo

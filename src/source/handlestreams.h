// Streams over the files of a transformation, each failed from the start when its file could not be
// opened, and the one answer to what went wrong with them.
#pragma once

#include <windows.h>

#include <istream>
#include <ostream>
#include <string_view>

#include "base/read_handle_streambuf.h"
#include "base/write_handle_streambuf.h"

namespace dorvo {

// What the buffer throws passes through the stream to the reader.
class ReadHandleStream : public std::istream {
public:
    ReadHandleStream(std::wstring_view path, interrupter* stop)
        : std::istream(nullptr), buffer_(path, stop) {
        rdbuf(&buffer_);
        exceptions(std::ios::badbit);
        if (!buffer_.is_open()) {
            setstate(std::ios::failbit);
        }
    }
    const read_handle_streambuf& buffer() const { return buffer_; }

private:
    read_handle_streambuf buffer_;
};

class WriteHandleStream : public std::ostream {
public:
    explicit WriteHandleStream(std::wstring_view path) : std::ostream(nullptr), buffer_(path) {
        rdbuf(&buffer_);
        if (!buffer_.is_open()) {
            setstate(std::ios::failbit);
        }
    }
    const write_handle_streambuf& buffer() const { return buffer_; }

private:
    write_handle_streambuf buffer_;
};

// The code of a chain that broke between the two: 1223 after an interruption, that of a failed read
// or write, else 13, because the data itself was at fault.
DWORD chainError(const ReadHandleStream& in, const WriteHandleStream& out);

// Throws when the chain took a read that failed for the end of the file.
void throwIfCutOff(const ReadHandleStream& in);

}  // namespace dorvo

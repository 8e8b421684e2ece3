// A stream buffer that reads a file through a handle of its own, 8192 bytes at a time, and tells
// and asks an interrupter after every 2 MiB read.
//
// When the interrupter says stop, reading sets the last error to 1223 and throws. A failed read is
// an end of file to the stream, like a real one: whoever must tell them apart asks error().
#pragma once

#include <windows.h>

#include <array>
#include <stdexcept>
#include <streambuf>
#include <string>
#include <string_view>

#include "base/handle.h"
#include "base/interrupter.h"
#include "base/paths.h"

namespace dorvo {

template <class Char, class Traits = std::char_traits<Char>>
class basic_read_handle_streambuf : public std::basic_streambuf<Char, Traits> {
    static_assert(sizeof(Char) == 1);

public:
    using int_type = typename Traits::int_type;
    static constexpr uint32_t pollInterval = 0x200000;  // bytes

    // Opens the file; is_open() tells whether that worked, error() why not. The interrupter is
    // borrowed and may be null.
    explicit basic_read_handle_streambuf(std::wstring_view path, interrupter* stop = nullptr)
        : handle_(CreateFileW(longPath(path).c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                              OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr)),
          error_(handle_ ? DWORD{ERROR_SUCCESS} : GetLastError()),
          stop_(stop) {}
    // Reads an open handle from its current position.
    explicit basic_read_handle_streambuf(FileHandle handle, interrupter* stop = nullptr)
        : handle_(std::move(handle)), stop_(stop) {}

    bool is_open() const { return static_cast<bool>(handle_); }
    DWORD error() const { return error_; }             // of a failed open or read, else 0
    bool interrupted() const { return interrupted_; }  // reading was broken off

protected:
    int_type underflow() override {
        if (this->gptr() != this->egptr()) {
            return Traits::to_int_type(*this->gptr());
        }
        poll();
        DWORD read = 0;
        if (ReadFile(handle_.get(), buffer_.data(), static_cast<DWORD>(buffer_.size()), &read,
                     nullptr) == 0) {
            error_ = GetLastError();
            return Traits::eof();
        }
        if (read == 0) {
            return Traits::eof();
        }
        sincePoll_ += read;
        this->setg(buffer_.data(), buffer_.data(), buffer_.data() + read);
        return Traits::to_int_type(*this->gptr());
    }

private:
    void poll() {
        if (sincePoll_ < pollInterval) {
            return;
        }
        if (stop_ != nullptr) {
            stop_->advanced(sincePoll_);
        }
        sincePoll_ = 0;
        if (stop_ != nullptr && stop_->interrupted()) {
            interrupted_ = true;
            SetLastError(ERROR_CANCELLED);
            throw std::runtime_error("interrupt");
        }
    }

    FileHandle handle_;
    DWORD error_ = ERROR_SUCCESS;
    uint32_t sincePoll_ = 0;
    interrupter* stop_;  // borrowed
    bool interrupted_ = false;
    std::array<Char, 8192> buffer_;
};

using read_handle_streambuf = basic_read_handle_streambuf<char>;

}  // namespace dorvo

// Stream buffers over file handles of their own, 8192 bytes at a time.
#pragma once

#include <windows.h>

#include <array>
#include <cstdint>
#include <stdexcept>
#include <streambuf>
#include <string>
#include <string_view>

#include "base/handle.h"
#include "base/interrupter.h"
#include "base/paths.h"

namespace dorvo {

// Reads, and tells and asks an interrupter after every 2 MiB.
//
// When the interrupter says stop, reading sets the last error to 1223 and throws. A failed read is
// an end of file to the stream, like a real one: whoever must tell them apart asks error().
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

// Writes. A write that fails, or that the system cuts short for good, makes this and every later
// operation fail; error() keeps its code. What stands in the buffer when the object goes is
// written, but nobody learns whether that worked, and the last error stays: flush first.
template <class Char, class Traits = std::char_traits<Char>>
class basic_write_handle_streambuf : public std::basic_streambuf<Char, Traits> {
    static_assert(sizeof(Char) == 1);

public:
    using int_type = typename Traits::int_type;

    basic_write_handle_streambuf() = default;
    // Makes the file anew, or truncates it. is_open() tells whether that worked, error() why not.
    explicit basic_write_handle_streambuf(std::wstring_view path) {
        FileHandle made(CreateFileW(longPath(path).c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                    CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
        const DWORD error = made ? DWORD{ERROR_SUCCESS} : GetLastError();
        attach(std::move(made));
        error_ = error;
    }
    ~basic_write_handle_streambuf() override {
        const LastErrorGuard keep;
        close();
    }

    // Takes over an open handle at its current position; what it held before is closed.
    void attach(FileHandle handle) {
        close();
        error_ = ERROR_SUCCESS;
        handle_ = std::move(handle);
        if (handle_) {
            empty();
        }
    }
    // Writes what is left and closes. False, with the last error set, when anything was not
    // written.
    bool close() {
        if (!handle_) {
            return true;
        }
        const bool written = flush();
        handle_.reset();
        this->setp(nullptr, nullptr);  // so that nothing is taken for written any more
        return written;
    }
    bool flush() {
        if (!handle_) {
            SetLastError(error_ != ERROR_SUCCESS ? error_ : DWORD{ERROR_INVALID_HANDLE});
            return false;
        }
        const Char* next = this->pbase();
        while (error_ == ERROR_SUCCESS && next != this->pptr()) {
            DWORD written = 0;
            if (WriteFile(handle_.get(), next, static_cast<DWORD>(this->pptr() - next), &written,
                          nullptr) == 0) {
                error_ = GetLastError();
            } else if (written == 0) {
                error_ = ERROR_DISK_FULL;
            }
            next += written;
        }
        if (error_ != ERROR_SUCCESS) {
            this->setp(nullptr, nullptr);  // no room, so that nothing is taken any more
            SetLastError(error_);
            return false;
        }
        empty();
        return true;
    }

    bool is_open() const { return static_cast<bool>(handle_); }
    HANDLE handle() const { return handle_.get(); }  // borrowed
    DWORD error() const { return error_; }

protected:
    int_type overflow(int_type c) override {
        if (!flush()) {
            return Traits::eof();
        }
        if (!Traits::eq_int_type(c, Traits::eof())) {
            *this->pptr() = Traits::to_char_type(c);
            this->pbump(1);
        }
        return Traits::not_eof(c);
    }
    int sync() override { return flush() ? 0 : -1; }

private:
    void empty() { this->setp(buffer_.data(), buffer_.data() + buffer_.size()); }

    FileHandle handle_;
    DWORD error_ = ERROR_SUCCESS;  // of the first call that failed
    std::array<Char, 8192> buffer_;
};

using write_handle_streambuf = basic_write_handle_streambuf<char>;

}  // namespace dorvo

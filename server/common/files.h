// What all share who touch files: the owner of a descriptor, what a failed call throws, folders.
#pragma once

#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>

namespace dorvo {

// A write that found no room on the disk.
class DiskFull : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Throws what errno says of the file: DiskFull, or std::system_error.
[[noreturn]] inline void failAt(const char* what, const std::filesystem::path& path) {
    if (errno == ENOSPC || errno == EDQUOT) {
        throw DiskFull(std::string(what) + " " + path.string() + ": the disk is full");
    }
    throw std::system_error(errno, std::generic_category(),
                            std::string(what) + " " + path.string());
}

// Closes it once, moves, never copies.
class FileDescriptor {
public:
    explicit FileDescriptor(int fd = -1) : fd_(fd) {}
    ~FileDescriptor() {
        if (fd_ >= 0) {
            ::close(fd_);
        }
    }
    FileDescriptor(FileDescriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        std::swap(fd_, other.fd_);
        return *this;
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;

    [[nodiscard]] int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }

private:
    int fd_;
};

// Whether the folder was not there before. Its parent must be there.
bool makeFolder(const std::filesystem::path& folder);

// Makes names that were made or removed in the folder survive a power cut.
void syncFolder(const std::filesystem::path& folder);

}  // namespace dorvo

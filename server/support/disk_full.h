// A write that found no room on the disk.
#pragma once

#include <cerrno>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <system_error>

namespace dorvo {

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

}  // namespace dorvo

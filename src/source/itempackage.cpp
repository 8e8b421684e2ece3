#include "source/itempackage.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

#include "base/files.h"
#include "base/last_error.h"
#include "base/log.h"
#include "base/paths.h"
#include "base/text.h"

namespace dorvo {

bool ItemPackage::Reader::read(std::span<std::byte> into, DWORD& got) {
    if (file_) {
        return ReadFile(file_.get(), into.data(), static_cast<DWORD>(into.size()), &got, nullptr) !=
               0;
    }
    got = static_cast<DWORD>(std::min(into.size(), memory_.size() - at_));
    if (got != 0) {
        std::memcpy(into.data(), memory_.data() + at_, got);
        at_ += got;
    }
    return true;
}

bool ItemPackage::Reader::seek(uint64_t offset) {
    if (file_) {
        return seekFile(file_.get(), offset);
    }
    at_ = static_cast<size_t>(std::min<uint64_t>(offset, memory_.size()));
    return true;
}

ItemPackage::~ItemPackage() {
    remove();
}

void ItemPackage::begin(std::wstring path) {
    remove();
    path_ = std::move(path);
    error_ = ERROR_SUCCESS;
}

bool ItemPackage::end() {
    if (error_ == ERROR_SUCCESS && inFile_) {
        writeOut();
        file_.reset();
    }
    if (error_ != ERROR_SUCCESS) {
        SetLastError(error_);
    }
    return error_ == ERROR_SUCCESS;
}

bool ItemPackage::measure(uint64_t& size) const {
    if (!inFile_) {
        size = memory_.size();
        return true;
    }
    WIN32_FILE_ATTRIBUTE_DATA file{};
    if (GetFileAttributesExW(longPath(path_).c_str(), GetFileExInfoStandard, &file) == 0) {
        return false;
    }
    size = sizeOf(file);
    return true;
}

ItemPackage::Reader ItemPackage::open() const {
    if (!inFile_) {
        return Reader(memory_);
    }
    return Reader(
        FileHandle(CreateFileW(longPath(path_).c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                               OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN, nullptr)));
}

bool ItemPackage::remove() {
    memory_.clear();
    file_.reset();
    const bool wasInFile = std::exchange(inFile_, false);
    return !wasInFile || DeleteFileW(longPath(path_).c_str()) != 0;
}

ItemPackage::int_type ItemPackage::overflow(int_type c) {
    if (traits_type::eq_int_type(c, traits_type::eof())) {
        return traits_type::not_eof(c);
    }
    const char byte = traits_type::to_char_type(c);
    return xsputn(&byte, 1) == 1 ? c : traits_type::eof();
}

std::streamsize ItemPackage::xsputn(const char* bytes, std::streamsize count) {
    const auto size = static_cast<size_t>(count);
    if (error_ != ERROR_SUCCESS || (memory_.size() + size > mostInMemory && !writeOut())) {
        return 0;
    }
    try {
        memory_.insert(memory_.end(), bytes, bytes + size);
    } catch (const std::bad_alloc&) {  // which the stream would take for itself
        error_ = ERROR_NOT_ENOUGH_MEMORY;
        return 0;
    }
    return count;
}

// What is in memory goes to the file, which it begins where there is none yet.
bool ItemPackage::writeOut() {
    if (!inFile_) {
        inFile_ = true;
        file_ = FileHandle(CreateFileW(longPath(path_).c_str(), GENERIC_WRITE, FILE_SHARE_READ,
                                       nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
        if (!file_) {
            error_ = GetLastError();
            log(LogLevel::error, "Failed to open target %s, %s\n", toUtf8(path_),
                errorText(error_));
        }
    }
    for (size_t at = 0; error_ == ERROR_SUCCESS && at != memory_.size();) {
        DWORD written = 0;
        if (WriteFile(file_.get(), memory_.data() + at, static_cast<DWORD>(memory_.size() - at),
                      &written, nullptr) == 0) {
            error_ = GetLastError();
        } else if (written == 0) {
            error_ = ERROR_DISK_FULL;
        }
        at += written;
    }
    memory_.clear();
    return error_ == ERROR_SUCCESS;
}

}  // namespace dorvo

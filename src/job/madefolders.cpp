#include "job/madefolders.h"

#include <windows.h>

#include <array>
#include <span>

#include "base/files.h"
#include "base/paths.h"

namespace dorvo {

std::wstring madeFoldersPath(const std::wstring& list) {
    return list.substr(0, list.rfind(L'\\')) + L"\\act\\made";
}

MadeFolders::MadeFolders(std::wstring path) : path_(std::move(path)) {
    open();
}

bool MadeFolders::forget(const std::wstring& path) {
    return DeleteFileW(longPath(path).c_str()) != 0 || GetLastError() == ERROR_FILE_NOT_FOUND ||
           GetLastError() == ERROR_PATH_NOT_FOUND;
}

// Of a number that a full disk or a power cut has torn nothing counts.
bool MadeFolders::open() {
    uint64_t size = 0;
    file_ = openToChange(path_);
    if (file_ && fileSize(file_.get(), size)) {
        end_ = size - size % sizeof(last_);
        if (end_ == 0 || readFileAt(file_.get(), end_ - sizeof(last_),
                                    std::as_writable_bytes(std::span(&last_, 1)))) {
            return true;
        }
    }
    file_.reset();
    return false;
}

bool MadeFolders::add(uint32_t number) {
    if (number == last_) {
        return true;
    }
    if ((!file_ && !open()) ||
        !writeFileAt(file_.get(), end_, std::as_bytes(std::span(&number, 1)))) {
        return false;
    }
    end_ += sizeof(number);
    last_ = number;
    return true;
}

std::vector<bool> MadeFolders::all(uint32_t items) const {
    std::vector<bool> made(size_t{items} + 1);
    const FileHandle file(CreateFileW(longPath(path_).c_str(), GENERIC_READ,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                                      FILE_ATTRIBUTE_NORMAL, nullptr));
    std::array<uint32_t, 4096> numbers{};
    DWORD read = 0;
    while (file && ReadFile(file.get(), numbers.data(), sizeof(numbers), &read, nullptr) != 0 &&
           read >= sizeof(uint32_t)) {
        for (size_t i = 0; i < read / sizeof(uint32_t); ++i) {
            if (numbers[i] <= items) {
                made[numbers[i]] = true;
            }
        }
    }
    return made;
}

}  // namespace dorvo

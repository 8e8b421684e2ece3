#include "job/madefolders.h"

#include <windows.h>

#include <array>

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

// At the end of the last whole number.
bool MadeFolders::open() {
    if (!createDirectories(path_.substr(0, path_.rfind(L'\\')))) {
        return false;
    }
    file_.reset(CreateFileW(longPath(path_).c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ,
                            nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    LARGE_INTEGER size{};
    if (!file_ || GetFileSizeEx(file_.get(), &size) == 0) {
        file_.reset();
        return false;
    }
    constexpr LONGLONG width = sizeof(last_);
    LARGE_INTEGER at{};
    at.QuadPart = size.QuadPart - size.QuadPart % width;
    DWORD read = 0;
    if (at.QuadPart != 0) {
        at.QuadPart -= width;
        SetFilePointerEx(file_.get(), at, nullptr, FILE_BEGIN);
        ReadFile(file_.get(), &last_, sizeof(last_), &read, nullptr);
    }
    return true;
}

bool MadeFolders::add(uint32_t number) {
    if (number == last_) {
        return true;
    }
    if (!file_ && !open()) {
        return false;
    }
    DWORD written = 0;
    if (WriteFile(file_.get(), &number, sizeof(number), &written, nullptr) == 0) {
        return false;
    }
    if (written != sizeof(number)) {
        SetLastError(ERROR_DISK_FULL);
        return false;
    }
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

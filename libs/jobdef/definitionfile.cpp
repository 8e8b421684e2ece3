#include "jobdef/definitionfile.h"

#include <windows.h>

#include <filesystem>
#include <memory>

#include "jobdef/jobdefinition.h"

namespace dorvo::jobdef {
namespace {

constexpr DWORD largestFile = 16 * 1024 * 1024;

struct CloseHandleOf {
    using pointer = HANDLE;
    void operator()(HANDLE file) const {
        const DWORD error = GetLastError();
        CloseHandle(file);
        SetLastError(error);
    }
};
using File = std::unique_ptr<void, CloseHandleOf>;

File open(const std::wstring& path, DWORD access, DWORD share, DWORD disposition) {
    HANDLE file = CreateFileW(path.c_str(), access, share, nullptr, disposition,
                              FILE_ATTRIBUTE_NORMAL, nullptr);
    return File(file == INVALID_HANDLE_VALUE ? nullptr : file);
}

File create(const std::wstring& path) {
    File file = open(path, GENERIC_WRITE, 0, CREATE_ALWAYS);
    if (!file && GetLastError() == ERROR_PATH_NOT_FOUND) {
        std::error_code error;
        std::filesystem::create_directories(std::filesystem::path(path).parent_path(), error);
        file = open(path, GENERIC_WRITE, 0, CREATE_ALWAYS);
    }
    return file;
}

bool write(const std::wstring& path, const std::string& text) {
    const File file = create(path);
    if (!file) {
        return false;
    }
    DWORD written = 0;
    if (WriteFile(file.get(), text.data(), static_cast<DWORD>(text.size()), &written, nullptr) ==
        0) {
        return false;
    }
    if (written != text.size()) {
        SetLastError(ERROR_DISK_FULL);
        return false;
    }
    return FlushFileBuffers(file.get()) != 0;
}

}  // namespace

bool readFile(const std::wstring& path, std::string& text) {
    const File file = open(path, GENERIC_READ,
                           FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, OPEN_EXISTING);
    LARGE_INTEGER size;
    if (!file || GetFileSizeEx(file.get(), &size) == 0) {
        return false;
    }
    if (size.QuadPart > largestFile) {
        SetLastError(ERROR_FILE_TOO_LARGE);
        return false;
    }
    text.resize(static_cast<size_t>(size.QuadPart));
    DWORD read = 0;
    if (ReadFile(file.get(), text.data(), static_cast<DWORD>(text.size()), &read, nullptr) == 0) {
        return false;
    }
    text.resize(read);
    return true;
}

bool replaceFile(const std::wstring& path, const std::string& text) {
    if (path.empty()) {
        SetLastError(ERROR_PATH_NOT_FOUND);
        return false;
    }
    const std::wstring fresh = path + L".new";
    if (write(fresh, text) &&
        MoveFileExW(fresh.c_str(), path.c_str(),
                    MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) != 0) {
        return true;
    }
    const DWORD error = GetLastError();
    DeleteFileW(fresh.c_str());
    SetLastError(error);
    return false;
}

}  // namespace dorvo::jobdef

namespace dorvo {

bool JobDefinition::save(const std::wstring& path) const {
    return jobdef::replaceFile(path, text());
}

}  // namespace dorvo

#include "base/files.h"

#include "base/paths.h"

namespace dorvo {
namespace {

bool removeEntry(const std::wstring& path, DWORD attributes) {
    const std::wstring target = longPath(path);
    if ((attributes & FILE_ATTRIBUTE_READONLY) != 0) {
        SetFileAttributesW(target.c_str(), attributes & ~DWORD{FILE_ATTRIBUTE_READONLY});
    }
    const BOOL removed = (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0
                             ? RemoveDirectoryW(target.c_str())
                             : DeleteFileW(target.c_str());
    return removed != 0;
}

bool removeContent(const std::wstring& directory) {
    WIN32_FIND_DATAW entry;
    FindHandle find(FindFirstFileW((longPath(directory) + L"\\*").c_str(), &entry));
    if (!find) {
        return GetLastError() == ERROR_FILE_NOT_FOUND;
    }
    bool all = true;
    do {
        const std::wstring name = entry.cFileName;
        if (name == L"." || name == L"..") {
            continue;
        }
        const std::wstring path = directory + L"\\" + name;
        const bool enter = (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0 &&
                           (entry.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0;
        if (enter && !removeContent(path)) {
            all = false;
        }
        if (!removeEntry(path, entry.dwFileAttributes)) {
            all = false;
        }
    } while (FindNextFileW(find.get(), &entry) != 0);
    return all;
}

}  // namespace

FileHandle openToChange(const std::wstring& path) {
    if (!createDirectories(path.substr(0, path.rfind(L'\\')))) {
        return {};
    }
    return FileHandle(CreateFileW(longPath(path).c_str(), GENERIC_READ | GENERIC_WRITE,
                                  FILE_SHARE_READ, nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL,
                                  nullptr));
}

bool seekFile(HANDLE file, uint64_t offset) {
    LARGE_INTEGER place;
    place.QuadPart = static_cast<LONGLONG>(offset);
    return SetFilePointerEx(file, place, nullptr, FILE_BEGIN) != 0;
}

bool fileSize(HANDLE file, uint64_t& size) {
    LARGE_INTEGER value;
    if (GetFileSizeEx(file, &value) == 0) {
        return false;
    }
    size = static_cast<uint64_t>(value.QuadPart);
    return true;
}

bool readFileAt(HANDLE file, uint64_t offset, std::span<std::byte> bytes) {
    if (!seekFile(file, offset)) {
        return false;
    }
    while (!bytes.empty()) {
        DWORD count = 0;
        if (ReadFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &count, nullptr) == 0) {
            return false;
        }
        if (count == 0) {
            SetLastError(ERROR_HANDLE_EOF);
            return false;
        }
        bytes = bytes.subspan(count);
    }
    return true;
}

bool writeFileAt(HANDLE file, uint64_t offset, std::span<const std::byte> bytes) {
    DWORD count = 0;
    if (!seekFile(file, offset) ||
        WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &count, nullptr) == 0) {
        return false;
    }
    if (count == bytes.size()) {
        return true;
    }
    SetLastError(ERROR_DISK_FULL);
    return false;
}

bool resizeFile(HANDLE file, uint64_t size) {
    return seekFile(file, size) && SetEndOfFile(file) != 0;
}

std::optional<DWORD> reparseTag(const std::wstring& path) {
    WIN32_FIND_DATAW entry{};
    const FindHandle find(FindFirstFileW(longPath(path).c_str(), &entry));
    if (!find || (entry.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0) {
        return std::nullopt;
    }
    return entry.dwReserved0;
}

bool isVolumeMountedAt(const std::wstring& path) {
    constexpr DWORD longestName = 50;  // "\\\\?\\Volume{...}\\"
    wchar_t name[longestName + 1] = {};
    return GetVolumeNameForVolumeMountPointW((longPath(path) + L"\\").c_str(), name, longestName) !=
           0;
}

bool rm_rf(const std::wstring& path, bool self) {
    const DWORD attributes = GetFileAttributesW(longPath(path).c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES) {
        const DWORD error = GetLastError();
        return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
    }
    const bool enter = (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0 &&
                       (attributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0;
    const bool emptied = !enter || removeContent(path);
    const bool alone = (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0 || self;
    return emptied && (!alone || removeEntry(path, attributes));
}

}  // namespace dorvo

#include "base/rm_rf.h"

#include <windows.h>

#include "base/handle.h"
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

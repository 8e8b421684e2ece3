#include "source/sourcefilesystem.h"

#include "base/handle.h"
#include "base/paths.h"

namespace dorvo {

bool SourceFileSystem::attributes(const std::wstring& path, WIN32_FILE_ATTRIBUTE_DATA& data) {
    return GetFileAttributesExW(longPath(path).c_str(), GetFileExInfoStandard, &data) != 0;
}

bool SourceFileSystem::targetAttributes(const std::wstring& path, WIN32_FILE_ATTRIBUTE_DATA& data) {
    constexpr DWORD shareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    const FileHandle target(CreateFileW(longPath(path).c_str(), FILE_READ_ATTRIBUTES, shareAll,
                                        nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS,
                                        nullptr));
    BY_HANDLE_FILE_INFORMATION found;
    if (!target || GetFileInformationByHandle(target.get(), &found) == 0) {
        return false;
    }
    data = {found.dwFileAttributes & ~DWORD{FILE_ATTRIBUTE_REPARSE_POINT},
            found.ftCreationTime,
            found.ftLastAccessTime,
            found.ftLastWriteTime,
            found.nFileSizeHigh,
            found.nFileSizeLow};
    return true;
}

HANDLE SourceFileSystem::findFirst(const std::wstring& pattern, WIN32_FIND_DATAW& entry) {
    return FindFirstFileW(longPath(pattern).c_str(), &entry);
}

bool SourceFileSystem::findNext(HANDLE search, WIN32_FIND_DATAW& entry) {
    return FindNextFileW(search, &entry) != 0;
}

void SourceFileSystem::findClose(HANDLE search) {
    FindClose(search);
}

}  // namespace dorvo

#include "job/source/sourcefilesystem.h"

#include "base/paths.h"

namespace dorvo {

bool SourceFileSystem::attributes(const std::wstring& path, WIN32_FILE_ATTRIBUTE_DATA& data) {
    return GetFileAttributesExW(longPath(path).c_str(), GetFileExInfoStandard, &data) != 0;
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

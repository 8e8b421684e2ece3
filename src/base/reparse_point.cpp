#include "base/reparse_point.h"

#include "base/handle.h"
#include "base/paths.h"

namespace dorvo {

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

}  // namespace dorvo

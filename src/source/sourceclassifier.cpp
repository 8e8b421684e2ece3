#include "source/sourceclassifier.h"

#include "base/error_text.h"
#include "base/last_error.h"
#include "base/log.h"
#include "base/paths.h"
#include "base/text.h"

namespace dorvo {
namespace {

constexpr DWORD bufferSize = 260;

bool isFolderLink(const std::wstring& path) {
    constexpr DWORD folderLink = FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT;
    const DWORD attributes = GetFileAttributesW(longPath(path).c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & folderLink) == folderLink;
}

bool liesOn(std::wstring path, const std::wstring& mount) {
    path += L'\\';
    return path.size() >= mount.size() &&
           CompareStringOrdinal(path.data(), static_cast<int>(mount.size()), mount.data(),
                                static_cast<int>(mount.size()), TRUE) == CSTR_EQUAL;
}

// The platform's answer, in the form in which the path is given.
bool askMountPoint(const std::wstring& path, std::wstring& mount) {
    wchar_t buffer[bufferSize];
    const bool prefixed = path.size() >= bufferSize;
    const std::wstring asked = prefixed ? longPath(path) : path;
    if (GetVolumePathNameW(asked.c_str(), buffer, bufferSize) == 0) {
        return false;
    }
    mount = buffer;
    // The long form is for the call; what it adds to the path is taken off the answer.
    if (prefixed && asked.size() > path.size() && mount.starts_with(L"\\\\?\\")) {
        mount = mount.starts_with(L"\\\\?\\UNC\\") ? L"\\" + mount.substr(7) : mount.substr(4);
    }
    return true;
}

// The mount point that the path begins with. A volume mounted at the path itself is its own mount
// point, which the platform is sure to see where the path ends in a backslash.
bool mountPoint(const std::wstring& path, std::wstring& mount) {
    if (!path.ends_with(L'\\') && isFolderLink(path) && askMountPoint(path + L'\\', mount) &&
        liesOn(path, mount)) {
        return true;
    }
    if (!askMountPoint(path, mount)) {
        return false;
    }
    // What a link on the way leads to lies on another volume; the path itself lies on its drive's.
    constexpr size_t driveRoot = 3;
    if (!liesOn(path, mount) && path.size() >= driveRoot && path[1] == L':') {
        mount = path.substr(0, driveRoot);
    }
    return true;
}

}  // namespace

void SourceClassifier::operator()(const std::vector<std::wstring>& sources,
                                  VolumeMap& volumes) const {
    volumes.clear();
    for (const std::wstring& source : sources) {
        std::wstring mount;
        if (!mountPoint(source, mount)) {
            LastErrorGuard keep;
            log(LogLevel::error, "Failed to get volume path name from '%s', err=%d, %s\n",
                toUtf8(source), keep.error(), errorText(keep.error()));
            continue;
        }
        std::shared_ptr<JobVolume>& volume = volumes[mount];
        if (!volume) {
            volume = std::make_shared<JobVolume>();
            volume->index = static_cast<int32_t>(volumes.size());
            volume->path = mount;
        }
        volume->sources.push_back(source);
    }
}

}  // namespace dorvo

#include "job/restorepathlinks.h"

#include <windows.h>

#include "base/files.h"
#include "base/paths.h"

namespace dorvo {
namespace {

bool sameWindowsName(std::wstring_view a, std::wstring_view b) {
    return CompareStringOrdinal(a.data(), static_cast<int>(a.size()), b.data(),
                                static_cast<int>(b.size()), TRUE) == CSTR_EQUAL;
}

}  // namespace

RestoreFolder lookAtFolder(const std::wstring& path) {
    const DWORD attributes = GetFileAttributesW(longPath(path).c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES) {
        return {.error = GetLastError()};
    }
    RestoreFolder folder{.attributes = attributes};
    if ((attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) {
        folder.reparseTag = reparseTag(path).value_or(0);
        folder.mountedVolume =
            folder.reparseTag == IO_REPARSE_TAG_MOUNT_POINT && isVolumeMountedAt(path);
    }
    return folder;
}

RestorePathFault judgeRestorePath(RestorePathRequest request) {
    request.sameName = sameWindowsName;
    const RestorePathFault fault = checkRestorePath(request);
    const std::wstring_view way = request.root.empty() ? request.ownWay : request.root;
    return fault != RestorePathFault::none ? fault : findRestoreLink(request.target, way);
}

RestorePathFault findRestoreLink(std::wstring_view target, std::wstring_view root,
                                 const std::function<RestoreFolder(const std::wstring&)>& look) {
    size_t end = target.find(L'\\', restoredPartOf(target, root));
    for (; end != std::wstring_view::npos; end = target.find(L'\\', end + 1)) {
        const RestoreFolder folder = look(std::wstring(target.substr(0, end)));
        if (folder.error == ERROR_FILE_NOT_FOUND || folder.error == ERROR_PATH_NOT_FOUND) {
            return RestorePathFault::none;  // nothing lies below what is not there
        }
        if (folder.error != ERROR_SUCCESS) {
            return RestorePathFault::unknownParent;
        }
        if ((folder.attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 && !folder.mountedVolume &&
            leadsElsewhere(folder.reparseTag)) {
            return RestorePathFault::link;
        }
    }
    return RestorePathFault::none;
}

}  // namespace dorvo

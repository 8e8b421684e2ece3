#include "job/source/sourcelinks.h"

#include <algorithm>

#include "base/handle.h"
#include "base/paths.h"

namespace dorvo {
namespace {

// Folders that a cloud provider keeps are reparse points too, and at home where they are. A tag
// that the system does not tell is taken for a link's.
bool leadsElsewhere(DWORD tag) {
    return tag == 0 || IsReparseTagNameSurrogate(tag);
}

bool isVolumeMountedAt(const std::wstring& path) {
    wchar_t volume[MAX_PATH];
    return GetVolumeNameForVolumeMountPointW((longPath(path) + L"\\").c_str(), volume, MAX_PATH) !=
           0;
}

bool isLink(const std::wstring& path) {
    WIN32_FIND_DATAW entry{};
    const FindHandle found(FindFirstFileW(longPath(path).c_str(), &entry));
    return found && (entry.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 &&
           leadsElsewhere(entry.dwReserved0);
}

}  // namespace

std::string notEnteredText(const std::wstring& path, DWORD tag) {
    if (!leadsElsewhere(tag)) {
        return "what it holds is kept by another program and is not read";
    }
    return isVolumeMountedAt(path)
               ? "another volume is mounted here: name this folder to back it up as well"
               : "a link to another place: name it to back up what is there as well";
}

std::wstring firstLinkIn(const std::wstring& path, const std::wstring& mountPoint) {
    size_t begin = mountPoint.size();
    while (begin < path.size()) {
        const size_t end = std::min(path.find(L'\\', begin), path.size());
        const std::wstring folder = path.substr(0, end);
        if (isLink(folder)) {
            return folder;
        }
        begin = end + 1;
    }
    return {};
}

}  // namespace dorvo

#include "source/sourcelinks.h"

#include <algorithm>

#include "base/reparse_point.h"

namespace dorvo {

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
        const std::optional<DWORD> tag = reparseTag(folder);
        if (tag && leadsElsewhere(*tag)) {
            return folder;
        }
        begin = end + 1;
    }
    return {};
}

}  // namespace dorvo

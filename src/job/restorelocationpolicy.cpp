#include "job/restorelocationpolicy.h"

#include <windows.h>

#include <algorithm>
#include <string_view>

#include "base/paths.h"
#include "jobdef/restorejobdefinition.h"

namespace dorvo {
namespace {

bool isEmptyPath(const wchar_t* path) {
    return path == nullptr || *path == L'\0';
}

}  // namespace

bool RestoreLocationPolicy::exists(const std::wstring& path) const {
    return GetFileAttributesW(longPath(path).c_str()) != INVALID_FILE_ATTRIBUTES;
}

// Suffixes add up: a.txt, a.txt.0, a.txt.0.1, a.txt.0.1.2.
bool RestoreLocationPolicy::resolveConflict(bool noCheck, std::wstring& target) const {
    if (noCheck) {
        return true;
    }
    if (conflict_ == RestoreJobDefinition::conflictKeep) {
        return !exists(target);
    }
    if (conflict_ == RestoreJobDefinition::conflictRename) {
        for (uint32_t counter = 0; exists(target); ++counter) {
            target += L"." + std::to_wstring(counter);
        }
    }
    return true;
}

bool RestoreOriginalLocationPolicy::targetPath(const wchar_t* original, bool noCheck,
                                               std::wstring& target) const {
    if (isEmptyPath(original)) {
        return false;
    }
    target = original;
    return resolveConflict(noCheck, target);
}

RestoreOtherLocationPolicy::RestoreOtherLocationPolicy(int32_t conflict, const wchar_t* location,
                                                       std::wstring sourcePrefix)
    : RestoreLocationPolicy(conflict),
      location_(location == nullptr ? L"" : location),
      sourcePrefix_(std::move(sourcePrefix)) {
    std::replace(location_.begin(), location_.end(), L'/', L'\\');
}

bool RestoreOtherLocationPolicy::targetPath(const wchar_t* original, bool noCheck,
                                            std::wstring& target) const {
    if (isEmptyPath(original)) {
        return false;
    }
    const std::wstring_view path = original;
    target = location_;
    if (!sourcePrefix_.empty()) {
        target += path.substr(std::min(path.size(), sourcePrefix_.size() + 1));
    } else if (path.size() > 2 && path[1] == L':') {
        target.append(1, path[0]).append(path.substr(2));
    }
    return resolveConflict(noCheck, target);
}

}  // namespace dorvo

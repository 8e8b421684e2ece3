#include "storage/restoresibling.h"

#include <windows.h>

#include <algorithm>
#include <string_view>

#include "base/handle.h"
#include "base/paths.h"

namespace dorvo {
namespace {

constexpr size_t runBytes = 6;  // are enough to keep runs apart
constexpr std::wstring_view digits = L"0123456789abcdef";
constexpr std::wstring_view ending = L".tmp";
constexpr size_t runLength = 1 + 2 * runBytes + 1;  // of "~abababababab-"

bool allOf(std::wstring_view text, std::wstring_view set) {
    return !text.empty() && text.find_first_not_of(set) == std::wstring_view::npos;
}

bool isSiblingName(std::wstring_view name) {
    return name.size() > runLength + ending.size() && name.front() == L'~' &&
           allOf(name.substr(1, 2 * runBytes), digits) && name[runLength - 1] == L'-' &&
           name.ends_with(ending) &&
           allOf(name.substr(runLength, name.size() - runLength - ending.size()),
                 digits.substr(0, 10));
}

bool remove(const std::wstring& path) {
    const std::wstring name = longPath(path);
    SetFileAttributesW(name.c_str(), FILE_ATTRIBUTE_NORMAL);  // READONLY would keep it
    return DeleteFileW(name.c_str()) != 0 || GetLastError() == ERROR_FILE_NOT_FOUND;
}

// Nothing was found in the folder: because there is nothing, or because its volume is away.
bool nothingThere(const std::wstring& folder, DWORD error) {
    if (error != ERROR_FILE_NOT_FOUND && error != ERROR_PATH_NOT_FOUND) {
        SetLastError(error);
        return false;
    }
    const std::wstring root(volumeRootOf(folder));
    return GetFileAttributesW(longPath(root + L"\\").c_str()) != INVALID_FILE_ATTRIBUTES;
}

}  // namespace

std::wstring siblingPath(const std::wstring& target, const std::array<uint8_t, 16>& run,
                         uint32_t number) {
    std::wstring path = target.substr(0, target.find_last_of(L'\\') + 1) + L"~";
    for (size_t i = 0; i < runBytes; ++i) {
        path.append(1, digits[run[i] >> 4]).append(1, digits[run[i] & 15]);
    }
    return path + L"-" + std::to_wstring(number) + std::wstring(ending);
}

bool removeSiblings(const std::wstring& sibling) {
    const size_t begin = sibling.find_last_of(L'\\') + 1;
    const std::wstring folder = sibling.substr(0, begin);
    const std::wstring run = sibling.substr(begin, runLength);
    if (folder.empty() || !isSiblingName(std::wstring_view(sibling).substr(begin))) {
        return true;
    }
    WIN32_FIND_DATAW entry{};
    const FindHandle search(FindFirstFileW(longPath(folder + run + L"*").c_str(), &entry));
    if (!search) {
        return nothingThere(folder, GetLastError());
    }
    bool clean = true;
    do {
        const std::wstring_view name = entry.cFileName;
        const bool file = (entry.dwFileAttributes &
                           (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT)) == 0;
        if (file && name.starts_with(run) && isSiblingName(name)) {
            clean = remove(folder + std::wstring(name)) && clean;
        }
    } while (FindNextFileW(search.get(), &entry) != 0);
    return clean;
}

}  // namespace dorvo

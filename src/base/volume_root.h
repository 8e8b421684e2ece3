// What of a path is the root of a drive or a share; text only.
#pragma once

#include <string_view>

namespace dorvo {

// True of "C:", "C:\", "\\server\share" and "\\server\share\".
constexpr bool isVolumeRoot(std::wstring_view path) {
    if (path.ends_with(L'\\')) {
        path.remove_suffix(1);
    }
    if (!path.starts_with(L"\\\\")) {
        return path.size() <= 2;
    }
    const size_t share = path.find(L'\\', 2);
    return share == std::wstring_view::npos ||
           path.find(L'\\', share + 1) == std::wstring_view::npos;
}

// "C:" or "\\server\share" of a path that begins with it; the whole of any other.
constexpr std::wstring_view volumeRootOf(std::wstring_view path) {
    size_t end = path.find(L'\\');
    if (path.starts_with(L"\\\\")) {
        end = path.find(L'\\', 2);
        end = end == std::wstring_view::npos ? end : path.find(L'\\', end + 1);
    }
    return path.substr(0, end);
}

}  // namespace dorvo

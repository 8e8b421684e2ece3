// A path as the index has it: UTF-16 without a trailing backslash, any units that the platform
// takes.
#pragma once

#include <string>
#include <string_view>

namespace dorvo {

inline std::u16string localPath(std::wstring_view path) {
    if (path.size() > 1 && path.back() == L'\\') {
        path.remove_suffix(1);
    }
    return {path.begin(), path.end()};
}

inline std::wstring widePath(std::u16string_view path) {
    return {path.begin(), path.end()};
}

}  // namespace dorvo

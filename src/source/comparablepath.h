// A path in the form in which paths are compared: backslashes, no \\?\, no trailing one, upper
// case.
//
// Made once where a path is asked about more than once: folding it is the dear part of asking.
#pragma once

#include <string>
#include <string_view>

namespace dorvo {

class ComparablePath {
public:
    // Any path is one.
    ComparablePath(std::wstring_view path);
    ComparablePath(const std::wstring& path) : ComparablePath(std::wstring_view(path)) {}
    ComparablePath(const wchar_t* path) : ComparablePath(std::wstring_view(path)) {}

    const std::wstring& text() const { return text_; }

private:
    std::wstring text_;
};

}  // namespace dorvo

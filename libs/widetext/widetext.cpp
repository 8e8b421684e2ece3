#include "widetext/widetext.h"

#include <windows.h>

namespace dorvo {

std::wstring toWide(std::string_view utf8) {
    const int length = static_cast<int>(utf8.size());
    const int needed = MultiByteToWideChar(CP_UTF8, 0, utf8.data(), length, nullptr, 0);
    std::wstring wide(static_cast<size_t>(needed), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, utf8.data(), length, wide.data(), needed);
    return wide;
}

std::string toUtf8(std::wstring_view wide) {
    const int length = static_cast<int>(wide.size());
    const int needed =
        WideCharToMultiByte(CP_UTF8, 0, wide.data(), length, nullptr, 0, nullptr, nullptr);
    std::string utf8(static_cast<size_t>(needed), '\0');
    WideCharToMultiByte(CP_UTF8, 0, wide.data(), length, utf8.data(), needed, nullptr, nullptr);
    return utf8;
}

}  // namespace dorvo

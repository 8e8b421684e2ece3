#include "text/printable.h"

#include <algorithm>

#include "base/text.h"

namespace dorvo::agent {

std::string printable(std::string_view utf8) {
    const auto isControl = [](wchar_t c) {
        constexpr wchar_t firstVisible = 0x20;
        constexpr wchar_t lastControl = 0x9F;
        return c < firstVisible || (c >= 0x7F && c <= lastControl);
    };
    std::wstring text = toWide(utf8);
    std::replace_if(text.begin(), text.end(), isControl, L'?');
    return toUtf8(text);
}

}  // namespace dorvo::agent

// UTF-8 to UTF-16 and back. What is no valid text becomes U+FFFD; nothing fails.
#pragma once

#include <string>
#include <string_view>

namespace dorvo {

std::wstring toWide(std::string_view utf8);
std::string toUtf8(std::wstring_view wide);

// Null counts as empty.
inline bool isEmpty(const char* text) {
    return text == nullptr || *text == '\0';
}

// ASCII upper and lower case count as equal, as in _stricmp.
bool equalsIgnoreCase(std::string_view a, std::string_view b);

}  // namespace dorvo

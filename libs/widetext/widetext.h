// Between UTF-8 and UTF-16. What is no valid text becomes U+FFFD; nothing fails.
#pragma once

#include <string>
#include <string_view>

namespace dorvo {

std::wstring toWide(std::string_view utf8);
std::string toUtf8(std::wstring_view wide);

}  // namespace dorvo

// Conversions between UTF-8 and UTF-16; what is no valid text becomes U+FFFD.
#pragma once

#include <string>

namespace dorvo::jobdef {

std::wstring toWide(const std::string& utf8);
std::string toUtf8(const std::wstring& wide);

}  // namespace dorvo::jobdef

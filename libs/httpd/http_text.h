// The letters that HTTP's heads and chunks are made of.
#pragma once

#include <algorithm>
#include <string_view>

namespace dorvo {

inline char lowerCase(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
}

inline bool equalNoCase(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](char x, char y) { return lowerCase(x) == lowerCase(y); });
}

// Of a method's or a field's name.
inline bool isTokenChar(char c) {
    const char lower = lowerCase(c);
    return (lower >= 'a' && lower <= 'z') || (c >= '0' && c <= '9') ||
           (c != '\0' && std::string_view("!#$%&'*+-.^_`|~").find(c) != std::string_view::npos);
}

inline bool isToken(std::string_view text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), isTokenChar);
}

// Without the blanks around it.
inline std::string_view trimmed(std::string_view text) {
    const size_t begin = text.find_first_not_of(" \t");
    if (begin == std::string_view::npos) {
        return {};
    }
    return text.substr(begin, text.find_last_not_of(" \t") - begin + 1);
}

// Of a field's value: what can be seen, blanks, and the bytes beyond ASCII.
inline bool isFieldChar(char c) {
    return c == '\t' || (static_cast<unsigned char>(c) >= 0x20 && c != 0x7F);
}

}  // namespace dorvo

// What is asked of texts and done with them, UTF-8 and UTF-16; nothing fails.
#pragma once

#include <string>
#include <string_view>

#include "widetext/widetext.h"

namespace dorvo {

bool isUtf8(std::string_view text);

// False for a text that does not survive UTF-8, in which half of a surrogate pair stands alone: two
// such texts may come out the same.
bool isWholeText(std::wstring_view wide);
// For eyes: each such half as "<U+D800>", which no file name on Windows has in it.
std::wstring withHalvesSpelled(std::wstring_view wide);

// Null counts as empty.
inline bool isEmpty(const char* text) {
    return text == nullptr || *text == '\0';
}

// Makes texts equal that differ in upper and lower case only, in any script. The length stays.
void foldCase(std::wstring& text);

// ASCII upper and lower case count as equal, as in _stricmp.
bool equalsIgnoreCase(std::string_view a, std::string_view b);

}  // namespace dorvo

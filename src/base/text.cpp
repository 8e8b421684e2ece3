#include "base/text.h"

#include <windows.h>

#include <algorithm>
#include <cstdio>

namespace dorvo {
namespace {

constexpr bool isHigh(wchar_t c) {
    return c >= 0xD800 && c <= 0xDBFF;
}
constexpr bool isLow(wchar_t c) {
    return c >= 0xDC00 && c <= 0xDFFF;
}

// The first half that stands alone from `begin` on; the text's size when there is none.
size_t findHalf(std::wstring_view text, size_t begin) {
    for (size_t i = begin; i < text.size(); ++i) {
        if (isHigh(text[i]) && i + 1 < text.size() && isLow(text[i + 1])) {
            ++i;
        } else if (isHigh(text[i]) || isLow(text[i])) {
            return i;
        }
    }
    return text.size();
}

}  // namespace

bool isWholeText(std::wstring_view wide) {
    return findHalf(wide, 0) == wide.size();
}

std::wstring withHalvesSpelled(std::wstring_view wide) {
    std::wstring spelled;
    size_t done = 0;
    for (size_t half = findHalf(wide, 0); half < wide.size(); half = findHalf(wide, done)) {
        char code[16];
        static_cast<void>(
            std::snprintf(code, sizeof(code), "<U+%04X>", static_cast<unsigned>(wide[half])));
        spelled.append(wide.substr(done, half - done)).append(toWide(code));
        done = half + 1;
    }
    return spelled.append(wide.substr(done));
}

void foldCase(std::wstring& text) {
    // One character stays one character, so nothing moves.
    const int length = static_cast<int>(text.size());
    if (length != 0) {
        LCMapStringEx(LOCALE_NAME_INVARIANT, LCMAP_UPPERCASE, text.data(), length, text.data(),
                      length, nullptr, nullptr, 0);
    }
}

bool isUtf8(std::string_view text) {
    return text.empty() || MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text.data(),
                                               static_cast<int>(text.size()), nullptr, 0) != 0;
}

bool equalsIgnoreCase(std::string_view a, std::string_view b) {
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [&](char x, char y) { return lower(x) == lower(y); });
}

}  // namespace dorvo

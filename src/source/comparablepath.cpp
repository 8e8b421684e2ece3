#include "source/comparablepath.h"

#include <algorithm>

#include "base/text.h"

namespace dorvo {

ComparablePath::ComparablePath(std::wstring_view path) : text_(path) {
    std::replace(text_.begin(), text_.end(), L'/', L'\\');
    if (text_.starts_with(L"\\\\?\\UNC\\")) {
        text_.erase(2, 6);
    } else if (text_.starts_with(L"\\\\?\\")) {
        text_.erase(0, 4);
    }
    while (!text_.empty() && text_.back() == L'\\') {
        text_.pop_back();
    }
    foldCase(text_);
}

}  // namespace dorvo

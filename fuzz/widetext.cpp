// Definitions' conversions for the targets, where wide characters are whole code points.
#include "widetext/widetext.h"

#include <boost/locale/encoding_utf.hpp>

namespace dorvo {

std::wstring toWide(std::string_view utf8) {
    return boost::locale::conv::utf_to_utf<wchar_t>(utf8.data(), utf8.data() + utf8.size());
}

std::string toUtf8(std::wstring_view wide) {
    return boost::locale::conv::utf_to_utf<char>(wide.data(), wide.data() + wide.size());
}

}  // namespace dorvo

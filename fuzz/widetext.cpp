// Definitions' conversions for the targets, where wide characters are whole code points.
#include "jobdef/widetext.h"

#include <boost/locale/encoding_utf.hpp>

namespace dorvo::jobdef {

std::wstring toWide(const std::string& utf8) {
    return boost::locale::conv::utf_to_utf<wchar_t>(utf8);
}

std::string toUtf8(const std::wstring& wide) {
    return boost::locale::conv::utf_to_utf<char>(wide);
}

}  // namespace dorvo::jobdef

#include "http_util/http_location.h"

#include <algorithm>
#include <string_view>

namespace dorvo {
namespace {

// What follows the scheme of an http or https URL; empty for anything else.
std::string_view after_scheme(std::string_view url) {
    for (const std::string_view scheme : {"http://", "https://"}) {
        const bool same =
            url.size() >= scheme.size() &&
            std::ranges::equal(url.substr(0, scheme.size()), scheme, [](char a, char b) {
                return (a >= 'A' && a <= 'Z' ? a - 'A' + 'a' : a) == b;
            });
        if (same) {
            return url.substr(scheme.size());
        }
    }
    return {};
}

}  // namespace

bool split_location(const std::string& location, std::string& host, std::string& path) {
    std::string_view rest = after_scheme(location);
    rest = rest.substr(0, rest.find('#'));
    const size_t end = std::min(rest.find_first_of("/?"), rest.size());
    std::string_view authority = rest.substr(0, end);
    if (const size_t at = authority.rfind('@'); at != std::string_view::npos) {
        authority.remove_prefix(at + 1);
    }
    const size_t bracket = authority.starts_with('[') ? authority.find(']') : 0;
    const size_t colon = bracket == std::string_view::npos ? bracket : authority.find(':', bracket);
    host = authority.substr(0, colon);
    path = rest.substr(end);
    if (path.starts_with('?')) {
        path.insert(0, "/");
    }
    return !host.empty() && !path.empty();
}

}  // namespace dorvo

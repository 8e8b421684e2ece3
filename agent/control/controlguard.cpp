#include "control/controlguard.h"

#include <algorithm>
#include <iterator>

#include "base/text.h"

namespace dorvo::agent {

bool isLoopbackHost(std::string_view host) {
    constexpr std::string_view names[] = {"localhost", "127.0.0.1", "[::1]"};
    const size_t colon = host.find(':', host.starts_with('[') ? host.find(']') : 0);
    if (colon != std::string_view::npos) {
        const std::string_view port = host.substr(colon + 1);
        if (port.empty() || port.find_first_not_of("0123456789") != std::string_view::npos) {
            return false;
        }
        host = host.substr(0, colon);
    }
    return std::any_of(std::begin(names), std::end(names),
                       [host](std::string_view name) { return equalsIgnoreCase(host, name); });
}

bool bearsToken(std::string_view authorization, std::string_view token) {
    constexpr std::string_view scheme = "Bearer ";
    if (!authorization.starts_with(scheme)) {
        return false;
    }
    authorization.remove_prefix(scheme.size());
    if (authorization.size() != token.size() || token.empty()) {
        return false;
    }
    unsigned difference = 0;
    for (size_t i = 0; i < token.size(); ++i) {
        difference |= static_cast<unsigned char>(token[i] ^ authorization[i]);
    }
    return difference == 0;
}

}  // namespace dorvo::agent

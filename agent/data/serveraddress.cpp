#include "data/serveraddress.h"

#include <algorithm>
#include <charconv>

namespace dorvo::agent {
namespace {

bool isHostCharacter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
           c == '.' || c == '_';
}

}  // namespace

std::optional<ServerAddress> parseServerAddress(std::string_view text) {
    constexpr size_t longestHost = 253;
    const size_t colon = text.find(':');
    if (colon == std::string_view::npos || colon == 0 || colon > longestHost) {
        return std::nullopt;
    }
    ServerAddress address{.host = std::string(text.substr(0, colon))};
    if (!std::all_of(address.host.begin(), address.host.end(), isHostCharacter)) {
        return std::nullopt;
    }
    const std::string_view port = text.substr(colon + 1);
    const auto [end, error] = std::from_chars(port.data(), port.data() + port.size(), address.port);
    if (error != std::errc() || end != port.data() + port.size() || address.port == 0) {
        return std::nullopt;
    }
    return address;
}

}  // namespace dorvo::agent

// HOST:PORT as the user gives it. Pure.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace dorvo::agent {

struct ServerAddress {
    std::string host;
    uint16_t port = 0;
};

// A name or an IPv4 address, a colon and a port from 1 to 65535; nothing for any other text.
std::optional<ServerAddress> parseServerAddress(std::string_view text);

}  // namespace dorvo::agent

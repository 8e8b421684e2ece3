#include "client_network.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>

namespace dorvo {

std::string clientNetwork(const std::string& address) {
    in6_addr whole{};
    // With a zone ("fe80::1%eth0") it is a neighbour, whose half says nothing about him.
    if (::inet_pton(AF_INET6, address.c_str(), &whole) != 1 || IN6_IS_ADDR_V4MAPPED(&whole)) {
        return address;
    }
    std::fill(std::begin(whole.s6_addr) + 8, std::end(whole.s6_addr), uint8_t{0});
    std::array<char, INET6_ADDRSTRLEN> text{};
    ::inet_ntop(AF_INET6, &whole, text.data(), text.size());
    return text.data();
}

}  // namespace dorvo

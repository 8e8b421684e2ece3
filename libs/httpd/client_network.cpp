#include "httpd/client_network.h"

#include <algorithm>
#include <boost/asio/ip/address_v6.hpp>

namespace dorvo {

std::string clientNetwork(const std::string& address) {
    boost::system::error_code error;
    // With a zone ("fe80::1%eth0") it is a neighbour, whose half says nothing about him.
    if (address.find(':') == std::string::npos || address.find('%') != std::string::npos) {
        return address;
    }
    const auto whole = boost::asio::ip::make_address_v6(address, error);
    if (error || whole.is_v4_mapped()) {
        return address;
    }
    auto bytes = whole.to_bytes();
    std::fill(bytes.begin() + 8, bytes.end(), uint8_t{0});
    return boost::asio::ip::address_v6(bytes).to_string();
}

}  // namespace dorvo

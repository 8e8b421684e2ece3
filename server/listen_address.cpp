#include "listen_address.h"

#include <netdb.h>

#include <array>
#include <memory>
#include <stdexcept>

namespace dorvo {

std::string listenAddress(const std::string& host) {
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* first = nullptr;
    const int result = ::getaddrinfo(host.c_str(), nullptr, &hints, &first);
    if (result != 0) {
        throw std::runtime_error("cannot serve at '" + host + "': " + ::gai_strerror(result));
    }
    const std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> all(first, &::freeaddrinfo);
    const addrinfo* chosen = first;
    while (chosen != nullptr && chosen->ai_family != AF_INET) {
        chosen = chosen->ai_next;
    }
    if (chosen == nullptr) {
        chosen = first;
    }
    std::array<char, NI_MAXHOST> text{};
    if (::getnameinfo(chosen->ai_addr, chosen->ai_addrlen, text.data(), text.size(), nullptr, 0,
                      NI_NUMERICHOST) != 0) {
        throw std::runtime_error("cannot serve at '" + host + "'");
    }
    return text.data();
}

}  // namespace dorvo

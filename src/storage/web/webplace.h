// Where a storage on the web finds its run: a server, and whose session there. A value.
#pragma once

#include <cstdint>
#include <string>

namespace dorvo {

struct WebPlace {
    std::string user;
    std::string cookie;  // empty: the one that the store has when it is needed
    std::string host;
    uint16_t port = 0;
};

}  // namespace dorvo

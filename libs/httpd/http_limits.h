// What a server grants its clients, and where it writes of them.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace dorvo {

// Takes one line for each request, without its end.
using HttpLog = std::function<void(const std::string&)>;

struct HttpLimits {
    // At that number the oldest connection whose last request was not from somebody known ends for
    // a new one; where all are known, the new one is answered with 503.
    size_t connections = 1024;
    // The same for those of one network, see client_network.h, but for addresses behind which there
    // are many clients.
    size_t connectionsOfAddress = SIZE_MAX;
    std::vector<std::string> manyBehind;
    size_t headBytes = 8192;
    size_t discardedBytes = size_t{64} << 20U;  // of a refused body, before the connection ends
    // What the bodies and answers of all requests may take together; a body that would take more is
    // refused with 503. Small ones are always taken.
    size_t memoryBytes = size_t{256} << 20U;
    // The same for those of one client, but for `manyBehind`. One whose answers take more, because
    // it does not read them, has its further requests refused.
    size_t memoryOfClientBytes = size_t{128} << 20U;
    size_t smallBytes = size_t{16} << 10U;
    std::chrono::milliseconds idle{300'000};  // between two requests of a connection
    // Where there is any: how long a connection may wait for requests before one is from somebody
    // known. The requests themselves are not cut short.
    std::chrono::milliseconds stranger{0};
    std::chrono::milliseconds head{20'000};   // from a request's first byte to its head's last
    std::chrono::milliseconds stall{30'000};  // for 32 KiB of a body, any of an answer
    std::chrono::milliseconds stopPatience{10'000};  // for requests in progress at stop()
    // Plain addresses of those whose word counts for where a request comes from, see
    // forwarded_client.h.
    std::vector<std::string> trustedProxies;
};

}  // namespace dorvo

#include "job/joberror.h"

#include <algorithm>
#include <iterator>

#include "base/http_error.h"

namespace dorvo {
namespace {

constexpr uint32_t networkErrors[] = {
    10024,              // too many sockets
    10049,              // address not available
    10050,              // network down
    10051,              // network unreachable
    10053,              // connection aborted
    10054,              // connection reset
    10057,              // not connected
    10058,              // shut down
    10060,              // timed out
    10064,              // host down
    10065,              // host unreachable
    10067,              // too many processes
    10070,              // stale handle
    10101,              // graceful disconnect
    withHttpMark(503),  // service unavailable
    withHttpMark(504),  // gateway timeout
};

}  // namespace

bool isNetworkError(uint32_t code) {
    return std::find(std::begin(networkErrors), std::end(networkErrors), code) !=
           std::end(networkErrors);
}

}  // namespace dorvo

#include "descriptor_limit.h"

#include <sys/resource.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <stdexcept>
#include <string>
#include <system_error>

namespace dorvo {

namespace {

// Packages of the requests under way, the database, logs, and connections that are being ended.
constexpr size_t ownDescriptors = 128;
constexpr size_t fewestConnections = 16;

}  // namespace

size_t raiseDescriptorLimit() {
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) {
        throw std::system_error(errno, std::generic_category(), "no limit of open files");
    }
    const rlim_t before = limit.rlim_cur;
    limit.rlim_cur = limit.rlim_max;
    if (::setrlimit(RLIMIT_NOFILE, &limit) != 0) {
        limit.rlim_cur = before;
    }
    return limit.rlim_cur == RLIM_INFINITY ? std::numeric_limits<size_t>::max() : limit.rlim_cur;
}

size_t fittingConnections(size_t wanted, size_t descriptors) {
    if (descriptors < ownDescriptors + fewestConnections) {
        throw std::runtime_error(
            "the limit of open files, " + std::to_string(descriptors) + ", is too low: at least " +
            std::to_string(ownDescriptors + fewestConnections) + " are needed");
    }
    return std::min(wanted, descriptors - ownDescriptors);
}

}  // namespace dorvo

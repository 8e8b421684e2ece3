// Where to serve, from what somebody has typed.
#pragma once

#include <string>

namespace dorvo {

// The address of a name such as "localhost", an IPv4 one where it has one; an address stays what it
// is. Throws std::runtime_error that says what is wrong with it.
std::string listenAddress(const std::string& host);

}  // namespace dorvo

// Whose address it is, as far as limits care.
#pragma once

#include <string>

namespace dorvo {

// The address itself; of an IPv6 one the first half, since whoever has one has all of that half.
std::string clientNetwork(const std::string& address);

}  // namespace dorvo

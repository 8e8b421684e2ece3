// Which of the error codes that jobs keep mean a network at fault.
#pragma once

#include <cstdint>

namespace dorvo {

// Whether another try may succeed, for a socket code or a marked HTTP status. A refused connection
// is none of these.
bool isNetworkError(uint32_t code);

}  // namespace dorvo

// The system's message for a Win32 or socket error code, in UTF-8 and without a line end; the code
// in decimal where the system knows no message. Keeps the thread's last error.
#pragma once

#include <string>

namespace dorvo {

std::string errorText(unsigned long code);

}  // namespace dorvo

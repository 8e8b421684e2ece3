// The system's message for a Win32 or socket error code, in UTF-8 and without a line end; the words
// for an error of a key (base/key_error.h); the code in decimal where there is no message. Keeps
// the thread's last error.
#pragma once

#include <string>

namespace dorvo {

std::string errorText(unsigned long code);

}  // namespace dorvo

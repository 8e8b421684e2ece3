// The version of this server, as the build was told it.
#pragma once

namespace dorvo {

// "1.2.3".
extern const char* const serverVersion;

}  // namespace dorvo

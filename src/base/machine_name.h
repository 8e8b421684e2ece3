// The name under which this machine is known to storage back ends: its DNS host name, in UTF-8.
#pragma once

#include <string>

#include "base/api.h"

namespace dorvo {

// False with the last error when the system does not tell.
DORVO_JOB_API bool machineName(std::string& name);

}  // namespace dorvo

#include "text/version.h"

namespace dorvo::agent {

const char* const agentVersion = DORVO_VERSION;

}  // namespace dorvo::agent

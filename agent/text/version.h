// The version of this agent, as the build was told it.
#pragma once

namespace dorvo::agent {

// "1.2.3".
extern const char* const agentVersion;

}  // namespace dorvo::agent

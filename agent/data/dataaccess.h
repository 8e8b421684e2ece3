// Whether this user may read what the agent keeps.
#pragma once

namespace dorvo::agent {

// Throws AgentError when the data directory is there and closed to this user: its files would look
// as if there were none.
void requireDataAccess();

}  // namespace dorvo::agent

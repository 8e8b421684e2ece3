// For whom a command works, and whether they may.
#pragma once

#include <string>

namespace dorvo::agent {

// Throws AgentError when the data directory is there and closed to this user: its files would look
// as if there were none.
void requireDataAccess();

// The user that a command works for: `asked` when it is not empty, else the one who has logged in.
// Throws AgentError when nobody has logged in, the asked one has not, or the choice is open.
std::string chooseUser(const std::string& asked);

// The user whose key is meant where no server is asked: `asked` when it is not empty, else the one
// who has logged in, else whose Windows account it is. Throws AgentError when the choice is open.
std::string chooseKeyOwner(const std::string& asked);

// Throws AgentError when no server is set.
void requireServer();

}  // namespace dorvo::agent

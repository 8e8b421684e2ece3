// Who has logged in on this machine.
#pragma once

#include <string>
#include <vector>

namespace dorvo::agent {

// The user that a command works for: `asked` when it is not empty, else the one who has logged in.
// Throws AgentError when nobody has logged in, the asked one has not, or the choice is open.
std::string chooseUser(const std::string& asked);

// The same decision on a list of users. Pure.
std::string chooseUser(const std::string& asked, const std::vector<std::string>& loggedIn);

// Throws AgentError when no server is set.
void requireServer();

}  // namespace dorvo::agent

// The table of commands, in the order in which the help shows them.
#pragma once

#include <memory>
#include <vector>

#include "cli/command.h"

namespace dorvo::agent {

std::vector<std::unique_ptr<Command>> makeCommands();

}  // namespace dorvo::agent

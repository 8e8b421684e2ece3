// Parses a command line, runs its command and turns every failure into one sentence on standard
// error and an exit code.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "cli/commands.h"

namespace dorvo::agent {

// `arguments` are UTF-8, without the program's name.
int runCommandLine(const std::vector<std::string>& arguments,
                   const std::vector<std::unique_ptr<Command>>& commands, Terminal& terminal);

}  // namespace dorvo::agent

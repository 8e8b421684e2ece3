// What was wrong with what was typed, as the parser's failure and the words tell.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace dorvo::agent {

// A sentence without its end. `app` has parsed the arguments, which are in the order of the command
// line.
std::string usageError(const CLI::App& app, const CLI::ParseError& problem,
                       const std::vector<std::string>& arguments);

// The command that the arguments had reached, "agent key export".
std::string reachedCommand(const CLI::App& app);

}  // namespace dorvo::agent

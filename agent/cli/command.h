// One command of the command line.
//
// describe() adds the command with its arguments and help; values go into the object, which
// outlives the parser. run() carries it out after it was chosen, and returns the exit code. What
// fails ends in an AgentError.
#pragma once

#include <CLI/CLI.hpp>

#include "text/terminal.h"

namespace dorvo::agent {

class Command {
public:
    Command() = default;
    virtual ~Command() = default;
    Command(const Command&) = delete;
    Command& operator=(const Command&) = delete;

    // Returns the command's own parser, owned by `parent`.
    virtual CLI::App* describe(CLI::App& parent) = 0;
    virtual int run(Terminal& terminal) = 0;
};

}  // namespace dorvo::agent

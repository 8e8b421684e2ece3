// agent run: the resident agent in this console, until Ctrl+C.
#pragma once

#include "cli/command.h"

namespace dorvo::agent {

class ResidentCommand : public Command {
public:
    CLI::App* describe(CLI::App& parent) override;
    int run(Terminal& terminal) override;
};

}  // namespace dorvo::agent

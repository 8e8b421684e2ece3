// agent jobs: the jobs of this machine and their states.
#pragma once

#include "cli/command.h"

namespace dorvo::agent {

class JobsCommand : public Command {
public:
    CLI::App* describe(CLI::App& parent) override;
    int run(Terminal& terminal) override;

private:
    bool json_ = false;
};

}  // namespace dorvo::agent

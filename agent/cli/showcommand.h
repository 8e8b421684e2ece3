// agent show JOB: a job's definition, state and last runs with what failed in them.
#pragma once

#include <string>

#include "cli/command.h"

namespace dorvo::agent {

class ShowCommand : public Command {
public:
    CLI::App* describe(CLI::App& parent) override;
    int run(Terminal& terminal) override;

private:
    std::string job_;
    unsigned runs_ = 5;
    bool json_ = false;
};

}  // namespace dorvo::agent

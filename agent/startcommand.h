// agent start JOB: runs a job that there is; goes on with its run when it is paused.
#pragma once

#include <string>

#include "command.h"

namespace dorvo::agent {

class StartCommand : public Command {
public:
    CLI::App* describe(CLI::App& parent) override;
    int run(Terminal& terminal) override;

private:
    std::string job_;
};

}  // namespace dorvo::agent

// agent resume JOB: goes on with a run that was paused or interrupted.
#pragma once

#include <string>

#include "command.h"

namespace dorvo::agent {

class ResumeCommand : public Command {
public:
    CLI::App* describe(CLI::App& parent) override;
    int run(Terminal& terminal) override;

private:
    std::string job_;
};

}  // namespace dorvo::agent

// agent start JOB: runs a job that there is; goes on with its run when it is paused.
// agent resume JOB: goes on with a run that was paused or interrupted, and starts none.
#pragma once

#include <string>

#include "command.h"
#include "jobrun.h"

namespace dorvo::agent {

class RunCommand : public Command {
public:
    explicit RunCommand(RunStart start) : start_(start) {}

    CLI::App* describe(CLI::App& parent) override;
    int run(Terminal& terminal) override;

private:
    RunStart start_;
    std::string job_;
};

}  // namespace dorvo::agent

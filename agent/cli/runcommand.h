// agent start JOB: runs a job that there is; goes on with its run when it is paused.
// agent resume JOB: goes on with a run that was paused or interrupted, and starts none.
#pragma once

#include <string>

#include "cli/command.h"
#include "engine/engine.h"
#include "run/runflags.h"

namespace dorvo::agent {

class RunCommand : public Command {
public:
    // `start` or `resume`.
    explicit RunCommand(JobVerb verb) : verb_(verb) {}

    CLI::App* describe(CLI::App& parent) override;
    int run(Terminal& terminal) override;

private:
    JobVerb verb_;
    std::string job_;
    RunFlags flags_;
};

}  // namespace dorvo::agent

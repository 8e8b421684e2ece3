// agent stop JOB: cancels a run. agent pause JOB: pauses it until 'agent resume'. Both wait until
// that is done.
#pragma once

#include <string>

#include "cli/command.h"
#include "engine/engine.h"

namespace dorvo::agent {

class TellCommand : public Command {
public:
    // `stop` or `pause`.
    explicit TellCommand(JobVerb verb) : verb_(verb) {}

    CLI::App* describe(CLI::App& parent) override;
    int run(Terminal& terminal) override;

private:
    JobVerb verb_;
    std::string job_;
};

}  // namespace dorvo::agent

// agent watch [JOB]: follows the run of a job that is under way, or the next one, until its end; or
// the runs of all jobs until Ctrl+C. Changes nothing: reads the records, whoever runs the jobs.
#pragma once

#include <string>

#include "cli/command.h"

namespace dorvo::agent {

class WatchCommand : public Command {
public:
    CLI::App* describe(CLI::App& parent) override;
    int run(Terminal& terminal) override;

private:
    int watchJob(Terminal& terminal) const;
    int watchAll(Terminal& terminal) const;

    std::string job_;
    bool json_ = false;
};

}  // namespace dorvo::agent

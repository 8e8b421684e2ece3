// agent remove JOB: stops the job and deletes it with its history. Its backups stay.
#pragma once

#include <string>

#include "cli/command.h"

namespace dorvo::agent {

class RemoveCommand : public Command {
public:
    CLI::App* describe(CLI::App& parent) override;
    int run(Terminal& terminal) override;

private:
    std::string job_;
};

}  // namespace dorvo::agent

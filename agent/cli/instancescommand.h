// agent instances: the runs of backup jobs that the storage server or a folder holds.
#pragma once

#include <string>

#include "cli/command.h"

namespace dorvo::agent {

class InstancesCommand : public Command {
public:
    CLI::App* describe(CLI::App& parent) override;
    int run(Terminal& terminal) override;

private:
    std::string user_;
    std::string machine_;
    std::string job_;
    std::string local_;
    bool json_ = false;
};

}  // namespace dorvo::agent

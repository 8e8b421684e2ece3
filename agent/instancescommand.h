// agent instances: the runs that the storage server holds.
#pragma once

#include <string>

#include "command.h"

namespace dorvo::agent {

class InstancesCommand : public Command {
public:
    CLI::App* describe(CLI::App& parent) override;
    int run(Terminal& terminal) override;

private:
    std::string user_;
    std::string machine_;
    std::string job_;
    bool json_ = false;
};

}  // namespace dorvo::agent

// agent server set HOST:PORT: where the storage server is.
#pragma once

#include <string>

#include "cli/command.h"

namespace dorvo::agent {

class ServerCommand : public Command {
public:
    CLI::App* describe(CLI::App& parent) override;
    int run(Terminal& terminal) override;

private:
    std::string address_;
    std::string name_;
    bool keepLogin_ = false;
};

}  // namespace dorvo::agent

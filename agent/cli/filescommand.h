// agent files INSTANCE [PATH]: what a backup holds.
#pragma once

#include <string>

#include "cli/command.h"
#include "cli/instancequery.h"

namespace dorvo::agent {

class FilesCommand : public Command {
public:
    CLI::App* describe(CLI::App& parent) override;
    int run(Terminal& terminal) override;

private:
    InstanceQuery query_;
    std::string path_;
    bool json_ = false;
};

}  // namespace dorvo::agent

// agent snapshots on|off: whether backups read from volume snapshots.
#pragma once

#include <string>

#include "cli/command.h"

namespace dorvo::agent {

class SnapshotsCommand : public Command {
public:
    CLI::App* describe(CLI::App& parent) override;
    int run(Terminal& terminal) override;

private:
    std::string choice_;
};

}  // namespace dorvo::agent

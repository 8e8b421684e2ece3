// agent service install|uninstall|start|stop|status: the resident agent as a Windows service.
#pragma once

#include "cli/command.h"

namespace dorvo::agent {

class ServiceCommand : public Command {
public:
    CLI::App* describe(CLI::App& parent) override;
    int run(Terminal& terminal) override;

private:
    // Owned by the parser.
    CLI::App* install_ = nullptr;
    CLI::App* uninstall_ = nullptr;
    CLI::App* start_ = nullptr;
    CLI::App* stop_ = nullptr;
    CLI::App* run_ = nullptr;
};

}  // namespace dorvo::agent

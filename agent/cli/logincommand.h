// agent login USER: gets a session from the server and keeps it with the password.
#pragma once

#include <string>

#include "cli/command.h"
#include "text/secret.h"

namespace dorvo::agent {

class LoginCommand : public Command {
public:
    CLI::App* describe(CLI::App& parent) override;
    int run(Terminal& terminal) override;

private:
    Secret readPassword(Terminal& terminal) const;

    std::string user_;
    bool passwordFromInput_ = false;
};

}  // namespace dorvo::agent

// agent logout USER: ends the user's sessions at the server and forgets them with the password.
#pragma once

#include <string>

#include "cli/command.h"

namespace dorvo::agent {

class LogoutCommand : public Command {
public:
    CLI::App* describe(CLI::App& parent) override;
    int run(Terminal& terminal) override;

private:
    std::string user_;
};

}  // namespace dorvo::agent

#include "cli/logoutcommand.h"

#include "control/openengine.h"
#include "text/exitcode.h"

namespace dorvo::agent {

CLI::App* LogoutCommand::describe(CLI::App& parent) {
    CLI::App* const logout =
        parent.add_subcommand("logout", "End the session with the storage server");
    logout->add_option("USER", user_, "The account's name")->required();
    logout->footer(
        "Forgets the password too. The key that opens the user's backups stays on this machine.\n"
        "Example:\n  agent logout alice");
    return logout;
}

int LogoutCommand::run(Terminal& terminal) {
    openEngine()->logout(user_, {});
    terminal.out("'" + user_ + "' is logged out.");
    return exitDone;
}

}  // namespace dorvo::agent

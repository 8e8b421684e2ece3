#include "cli/logincommand.h"

#include "base/machine_name.h"
#include "control/openengine.h"
#include "data/users.h"
#include "text/agenterror.h"
#include "text/secretinput.h"

namespace dorvo::agent {

CLI::App* LoginCommand::describe(CLI::App& parent) {
    CLI::App* const login = parent.add_subcommand("login", "Log in to the storage server");
    login->add_option("USER", user_, "The account's name")->required();
    login->add_flag("--password-stdin", passwordFromInput_,
                    "Read the password from standard input");
    login->footer(
        "Asks for the password on the terminal. The session and the password are kept encoded on "
        "this machine.\nExample:\n  agent login alice");
    return login;
}

int LoginCommand::run(Terminal& terminal) {
    requireServer();
    const Secret password = readPassword(terminal);
    openEngine()->login(user_, password.text, {});
    std::string machine;
    machineName(machine);  // the login has found it
    terminal.out("'" + user_ + "' is logged in as the user of machine '" + machine + "'.");
    return exitDone;
}

Secret LoginCommand::readPassword(Terminal& terminal) const {
    if (passwordFromInput_) {
        return readSecretLine(terminal, "password");
    }
    Secret password;
    if (!terminal.readSecret("Password for " + user_ + ": ", password.text)) {
        throw AgentError("No password was entered: type it on a terminal, or use --password-stdin",
                         exitUsage);
    }
    return password;
}

}  // namespace dorvo::agent

#include "logincommand.h"

#include <windows.h>

#include "agenterror.h"
#include "base/machine_name.h"
#include "engine/dataowner.h"
#include "failuretext.h"
#include "job/transferfailure.h"
#include "singletons.h"
#include "storage/webaccount.h"
#include "users.h"

namespace dorvo::agent {
namespace {

std::string thisMachine() {
    std::string name;
    if (!machineName(name)) {
        throw AgentError("The machine's name cannot be found out: " + failureText(GetLastError()));
    }
    return name;
}

// The new session takes the place of the older ones.
void forgetSessions(const std::string& user) {
    std::string cookie;
    while (cookies().findCookie(user.c_str(), cookie) && cookies().removeCookie(cookie.c_str())) {
    }
}

}  // namespace

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
    if (user_.empty()) {
        throw AgentError("The user's name is empty", exitUsage);
    }
    const Secret password = readPassword(terminal);
    const std::string machine = thisMachine();
    const DataOwner owner;  // a run keeps the stores it has read, and writes them over these
    std::string cookie;
    if (!WebAccount::login(user_, password.text, machine, cookie)) {
        const DWORD error = GetLastError();
        if (error == errorUnauthorized) {
            throw AgentError("Wrong user or password");
        }
        throw AgentError(requestFailure(error, user_));
    }
    forgetSessions(user_);
    const bool kept = cookies().saveCookie(user_.c_str(), cookie.c_str()) &&
                      passwords().savePassword(user_.c_str(), password.text.c_str());
    if (!kept) {
        throw AgentError("The session could not be saved in the data directory");
    }
    terminal.out("'" + user_ + "' is logged in as the user of machine '" + machine + "'.");
    return exitDone;
}

Secret LoginCommand::readPassword(Terminal& terminal) const {
    Secret password;
    if (passwordFromInput_) {
        if (!terminal.readLine(password.text) || password.text.empty()) {
            throw AgentError("No password came from standard input", exitUsage);
        }
        return password;
    }
    if (!terminal.readSecret("Password for " + user_ + ": ", password.text)) {
        throw AgentError("No password was entered: type it on a terminal, or use --password-stdin",
                         exitUsage);
    }
    return password;
}

}  // namespace dorvo::agent

#include "logoutcommand.h"

#include <windows.h>

#include "agenterror.h"
#include "engine/dataowner.h"
#include "failuretext.h"
#include "job/transferfailure.h"
#include "secret.h"
#include "singletons.h"
#include "storage/webaccount.h"

namespace dorvo::agent {
namespace {

// Ends the session at the server; its error code, 0 when there is no such session any more.
DWORD endSession(const std::string& user, const std::string& cookie) {
    if (WebAccount::logout(user, cookie)) {
        return 0;
    }
    const DWORD error = GetLastError();
    return error == errorUnauthorized ? 0 : error;
}

}  // namespace

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
    const DataOwner owner;  // a run would log in again with what it has read
    Secret password;
    std::string cookie;
    bool forgotten = true;
    DWORD failed = 0;
    const bool hasPassword = passwords().findPassword(user_.c_str(), password.text);
    if (!hasPassword && !cookies().findCookie(user_.c_str(), cookie)) {
        throw AgentError("'" + user_ + "' has not logged in");
    }
    if (hasPassword) {
        forgotten = passwords().removePassword(user_.c_str());
    }
    while (cookies().findCookie(user_.c_str(), cookie)) {
        const DWORD error = endSession(user_, cookie);
        failed = error != 0 ? error : failed;
        // The cookie is gone from memory even when the file could not be written.
        forgotten = cookies().removeCookie(cookie.c_str()) && forgotten;
    }
    if (!forgotten) {
        throw AgentError("The session and the password of '" + user_ +
                         "' could not be taken out of the data directory");
    }
    if (failed != 0) {
        throw AgentError("'" + user_ +
                         "' is logged out on this machine, but the session at the server could "
                         "not be ended: " +
                         failureText(failed));
    }
    terminal.out("'" + user_ + "' is logged out.");
    return exitDone;
}

}  // namespace dorvo::agent

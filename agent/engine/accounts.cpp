#include "engine/accounts.h"

#include <windows.h>

#include <algorithm>

#include "agenterror.h"
#include "base/machine_name.h"
#include "failuretext.h"
#include "job/transferfailure.h"
#include "secret.h"
#include "singletons.h"
#include "storage/webaccount.h"
#include "users.h"

namespace dorvo::agent {
namespace {

// Ends the session at the server; its error code, 0 when there is no such session any more.
DWORD endSession(const std::string& server, const std::string& user, const std::string& cookie,
                 HANDLE stop) {
    if (WebAccount::logout(server, user, cookie, stop)) {
        return 0;
    }
    const DWORD error = GetLastError();
    return error == errorUnauthorized ? 0 : error;
}

}  // namespace

Accounts::Accounts() : stop_(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {}

void Accounts::login(const std::string& user, const std::string& password) {
    requireServer();
    std::string machine;
    if (!machineName(machine)) {
        throw AgentError("The machine's name cannot be found out: " + failureText(GetLastError()));
    }
    std::lock_guard guard(lock_);
    const std::string server = serverOfOptions();
    std::string cookie;
    if (!WebAccount::login(server, user, password, machine, cookie, stop_.get())) {
        const DWORD error = GetLastError();
        throw AgentError(error == errorUnauthorized ? "Wrong user or password"
                         : error == ERROR_OPERATION_ABORTED
                             ? "Another server has been set meanwhile: log in again"
                             : requestFailure(error, user));
    }
    // The new session takes the place of the older ones.
    const bool kept = cookies().removeUser(user.c_str()) &&
                      cookies().saveCookie(user.c_str(), cookie.c_str(), server) &&
                      passwords().savePassword(user.c_str(), password.c_str(), server);
    if (!kept) {
        throw AgentError("The session could not be saved in the data directory");
    }
}

void Accounts::logout(const std::string& user) {
    std::lock_guard guard(lock_);
    const std::vector<std::string> users = cookies().users();
    const bool hasPassword = passwords().hasPassword(user.c_str());
    bool forgotten = true;
    DWORD failed = 0;
    if (!hasPassword && std::find(users.begin(), users.end(), user) == users.end()) {
        throw AgentError("'" + user + "' has not logged in");
    }
    if (hasPassword) {
        forgotten = passwords().removePassword(user.c_str());
    }
    const std::string server = serverOfOptions();
    std::string cookie;
    while (cookies().findCookie(user.c_str(), cookie, server)) {
        const DWORD error = endSession(server, user, cookie, stop_.get());
        failed = error != 0 ? error : failed;
        // The cookie is gone from memory even when the file could not be written.
        forgotten = cookies().removeCookie(cookie.c_str()) && forgotten;
    }
    // Sessions with other servers are forgotten; this one has no business with them.
    forgotten = cookies().removeUser(user.c_str()) && forgotten;
    if (!forgotten) {
        throw AgentError("The session and the password of '" + user +
                         "' could not be taken out of the data directory");
    }
    if (failed != 0) {
        throw AgentError("'" + user +
                         "' is logged out on this machine, but the session at the server could "
                         "not be ended: " +
                         failureText(failed));
    }
}

bool Accounts::needsSession(const std::string& user) {
    Secret password;
    std::string cookie;
    return passwords().findPassword(user.c_str(), password.text) &&
           !cookies().findCookie(user.c_str(), cookie);
}

uint32_t Accounts::renew(const std::string& user) {
    std::string machine;
    if (!machineName(machine)) {
        return GetLastError();
    }
    std::lock_guard guard(lock_);
    if (!needsSession(user)) {
        return 0;
    }
    Secret password;
    const std::string server = serverOfOptions();
    if (!passwords().findPassword(user.c_str(), password.text, server)) {
        return 0;
    }
    std::string cookie;
    if (!WebAccount::login(server, user, password.text, machine, cookie, stop_.get()) ||
        !cookies().saveCookie(user.c_str(), cookie.c_str(), server)) {
        return GetLastError();
    }
    return 0;
}

void Accounts::stop() {
    SetEvent(stop_.get());
}

}  // namespace dorvo::agent

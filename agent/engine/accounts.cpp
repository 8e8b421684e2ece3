#include "engine/accounts.h"

#include <windows.h>

#include <algorithm>

#include "base/interrupter.h"
#include "base/machine_name.h"
#include "data/users.h"
#include "job/transferfailure.h"
#include "storage/web/webaccount.h"
#include "text/agenterror.h"
#include "text/failuretext.h"
#include "text/secret.h"
#include "text/singletons.h"

namespace dorvo::agent {
namespace {

// What breaks a wait for the server off: the end of this process, or nobody being left to be told.
class EitherStop : public interrupter {
public:
    EitherStop(HANDLE stop, const GiveUp& giveUp) : interrupter(stop), giveUp_(giveUp) {}

    bool interrupted() const override {
        return interrupter::interrupted() || (giveUp_ && giveUp_());
    }

private:
    const GiveUp& giveUp_;  // borrowed
};

// Ends the session at the server; its error code, 0 when there is no such session any more.
DWORD endSession(const std::string& server, const std::string& user, const std::string& cookie,
                 const interrupter& stop) {
    if (WebAccount::logout(server, user, cookie, &stop)) {
        return 0;
    }
    const DWORD error = GetLastError();
    return error == errorUnauthorized ? 0 : error;
}

}  // namespace

Accounts::Accounts() : stop_(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {}

void Accounts::login(const std::string& user, const std::string& password, const GiveUp& giveUp) {
    requireServer();
    std::string machine;
    if (!machineName(machine)) {
        throw AgentError("The machine's name cannot be found out: " + failureText(GetLastError()));
    }
    const std::string server = serverOfOptions();
    std::string cookie;
    const EitherStop stop(stop_.get(), giveUp);
    if (!WebAccount::login(server, user, password, machine, cookie, &stop)) {
        const DWORD error = GetLastError();
        throw AgentError(error == errorUnauthorized ? "Wrong user or password"
                         : error == ERROR_OPERATION_ABORTED
                             ? "Another server has been set meanwhile: log in again"
                             : requestFailure(error, user));
    }
    // The new session takes the place of the older ones.
    std::lock_guard guard(lock_);
    const bool kept = cookies().removeUser(user.c_str()) &&
                      cookies().saveCookie(user.c_str(), cookie.c_str(), server) &&
                      passwords().savePassword(user.c_str(), password.c_str(), server);
    if (!kept) {
        throw AgentError("The session could not be saved in the data directory");
    }
}

bool Accounts::forget(const std::string& user, const std::string& server,
                      std::vector<std::string>& sessions) {
    std::lock_guard guard(lock_);
    const std::vector<std::string> users = cookies().users();
    const bool hasPassword = passwords().hasPassword(user.c_str());
    bool forgotten = true;
    if (!hasPassword && std::find(users.begin(), users.end(), user) == users.end()) {
        throw AgentError("'" + user + "' has not logged in");
    }
    if (hasPassword) {
        forgotten = passwords().removePassword(user.c_str());
    }
    std::string cookie;
    while (cookies().findCookie(user.c_str(), cookie, server)) {
        sessions.push_back(cookie);
        // The cookie is gone from memory even when the file could not be written.
        forgotten = cookies().removeCookie(cookie.c_str()) && forgotten;
    }
    // Sessions with other servers are forgotten; this one has no business with them.
    return cookies().removeUser(user.c_str()) && forgotten;
}

void Accounts::logout(const std::string& user, const GiveUp& giveUp) {
    const std::string server = serverOfOptions();
    std::vector<std::string> sessions;
    const bool forgotten = forget(user, server, sessions);
    const EitherStop stop(stop_.get(), giveUp);
    DWORD failed = 0;
    for (const std::string& cookie : sessions) {
        const DWORD error = endSession(server, user, cookie, stop);
        failed = error != 0 ? error : failed;
    }
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
    Secret password;
    const std::string server = serverOfOptions();
    {
        std::lock_guard guard(lock_);
        if (!needsSession(user) || !passwords().findPassword(user.c_str(), password.text, server)) {
            return 0;
        }
    }
    const interrupter stop(stop_.get());
    std::string cookie;
    if (!WebAccount::login(server, user, password.text, machine, cookie, &stop)) {
        return GetLastError();
    }
    std::lock_guard guard(lock_);
    if (!needsSession(user) || !passwords().isPasswordValid(user.c_str(), password.text.c_str())) {
        return 0;  // somebody has logged in or out meanwhile: that counts
    }
    return cookies().saveCookie(user.c_str(), cookie.c_str(), server) ? 0 : GetLastError();
}

void Accounts::stop() {
    SetEvent(stop_.get());
}

}  // namespace dorvo::agent

#include "engine/accounts.h"

#include <windows.h>

#include "base/interrupter.h"
#include "data/users.h"
#include "job/transferfailure.h"
#include "storage/web/web_login.h"
#include "text/agenterror.h"
#include "text/failuretext.h"

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

}  // namespace

Accounts::Accounts() : stop_(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {}

void Accounts::login(const std::string& user, const std::string& password, const GiveUp& giveUp) {
    requireServer();
    const EitherStop stop(stop_.get(), giveUp);
    const Web_Login::End end = Web_Login::login(user, password, &stop);
    const DWORD error = GetLastError();
    if (end == Web_Login::End::failed) {
        throw AgentError(error == errorUnauthorized ? "Wrong user or password"
                                                    : requestFailure(error, user));
    }
    if (end == Web_Login::End::not_saved) {
        throw AgentError("The session could not be saved in the data directory");
    }
}

void Accounts::logout(const std::string& user, const GiveUp& giveUp) {
    const EitherStop stop(stop_.get(), giveUp);
    const Web_Login::End end = Web_Login::logout(user, &stop);
    const DWORD error = GetLastError();
    switch (end) {
        case Web_Login::End::done: return;
        case Web_Login::End::nobody: throw AgentError("'" + user + "' has not logged in");
        case Web_Login::End::not_saved:
            throw AgentError("The session and the password of '" + user +
                             "' could not be taken out of the data directory");
        case Web_Login::End::failed: break;
    }
    throw AgentError("'" + user +
                     "' is logged out on this machine, but the session at the server could "
                     "not be ended: " +
                     failureText(error));
}

uint32_t Accounts::renew(const std::string& user) {
    const interrupter stop(stop_.get());
    return Web_Login::renew(user, &stop);
}

void Accounts::stop() {
    SetEvent(stop_.get());
}

}  // namespace dorvo::agent

// The users' logins, as the resident and the commands ask for them: what breaks a wait for the
// server off, and the words for what went wrong. Web_Login does the rest.
//
// Any thread, several at once. login() and logout() throw AgentError.
#pragma once

#include <cstdint>
#include <string>

#include "base/handle.h"
#include "engine/engine.h"

namespace dorvo::agent {

class Accounts {
public:
    Accounts();

    // Gets a session and keeps it with the password, in place of the user's older ones.
    void login(const std::string& user, const std::string& password, const GiveUp& giveUp = {});
    // Ends the user's sessions at the server and forgets them with the password; forgets them also
    // where the server cannot be told, and then throws.
    void logout(const std::string& user, const GiveUp& giveUp = {});

    // Gets a session with the stored password unless the user has a session or no password. 0, or
    // the error code of a try that failed.
    uint32_t renew(const std::string& user);

    // Breaks off what waits for the server, now and from now on.
    void stop();

private:
    KernelHandle stop_;  // manual reset
};

}  // namespace dorvo::agent

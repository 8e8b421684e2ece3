// The users' sessions with the storage server, in the stores of this process.
//
// Any thread, several at once: the stores change under a lock, so that nobody sees a user between
// two sessions, but the server's answer is waited for without it: one that does not answer holds
// nobody else up. login() and logout() throw AgentError.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

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
    // Whether renew() would ask the server.
    static bool needsSession(const std::string& user);

    // Breaks off what waits for the server, now and from now on.
    void stop();

private:
    // Takes the user's password and sessions out of the stores, and gives those with `server`;
    // false when not all could be taken out. Throws when there are none.
    bool forget(const std::string& user, const std::string& server,
                std::vector<std::string>& sessions);

    KernelHandle stop_;  // manual reset
    std::mutex lock_;    // orders the changes of the stores that belong together
};

}  // namespace dorvo::agent

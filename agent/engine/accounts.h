// The users' sessions with the storage server, in the stores of this process.
//
// Any thread; one logs in or out at a time, so that nobody sees a user between two sessions. Every
// operation waits for the server's answer; login() and logout() throw AgentError.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>

#include "base/handle.h"

namespace dorvo::agent {

class Accounts {
public:
    Accounts();

    // Gets a session and keeps it with the password, in place of the user's older ones.
    void login(const std::string& user, const std::string& password);
    // Ends the user's sessions at the server and forgets them with the password; forgets them also
    // where the server cannot be told, and then throws.
    void logout(const std::string& user);

    // Gets a session with the stored password unless the user has a session or no password. 0, or
    // the error code of a try that failed.
    uint32_t renew(const std::string& user);
    // Whether renew() would ask the server.
    static bool needsSession(const std::string& user);

    // Breaks off what waits for the server, now and from now on.
    void stop();

private:
    KernelHandle stop_;  // manual reset
    std::mutex lock_;    // orders the changes of the stores that belong together
};

}  // namespace dorvo::agent

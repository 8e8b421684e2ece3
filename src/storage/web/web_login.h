// Where users' sessions with the web server begin and end: whatever logs in or out, a user's
// command, a run whose session is refused or the resident that wants one ready, does so here.
//
// One lock of the process orders the logins and the changes of the cookie and password stores that
// belong to them. It is never held while the server is waited for: one that does not answer holds
// nobody else up. Of a user one renewal is under way at a time; who needs one meanwhile waits for
// it and takes what it brought. login() and logout() are the user's own and wait for nobody: what a
// renewal brings that was under way meanwhile is dropped.
//
// A password that the server has refused (401) is tried by no further renewal until there is
// another one or its user has logged in: the server counts failed logins.
//
// A new cookie takes the place of the old one in one change of the store, so that neither another
// thread nor a process that is killed leaves the user between two sessions. Any thread. Neither
// passwords nor cookies are logged.
#pragma once

#include <cstdint>
#include <string>

#include "base/api.h"
#include "base/interrupter.h"

namespace dorvo {

class WebClientEventHandler;
class Web_Server_Invoker;

class DORVO_JOB_API Web_Login {
public:
    // How a login or logout ended. What failed at the server is logged.
    enum class End {
        done,
        failed,     // at the server, or none is set: the last error says why, 401 for a wrong
                    // password and 429 after too many failed tries, both marked
        not_saved,  // a store could not be written; what the server was told stands
        nobody,     // of a logout: there was neither session nor password
    };

    // Gets a session with the server that the options name and keeps it with the password, in place
    // of the user's older ones. `stop`, borrowed, breaks the wait for an answer off with 1223; null
    // never does.
    static End login(const std::string& user, const std::string& password, const interrupter* stop);

    // Forgets the user's sessions and password, also where the server cannot be told, and ends the
    // sessions with the server that the options name. Those with others are only forgotten.
    static End logout(const std::string& user, const interrupter* stop);

    // Whether the user has a password for the server that the options name, but no session.
    static bool needed(const std::string& user);
    // Gets a session for a user who needs one. 0, or the error code of a try that failed or would:
    // 401, marked, for a password that was refused before.
    static uint32_t renew(const std::string& user, const interrupter* stop);

    // A session that the server has refused.
    struct Refused {
        const std::string& user;
        const std::string& server;       // serverName()
        const std::string& cookie;       // empty: the user has none
        WebClientEventHandler& handler;  // knows the password, and keeps the new cookie
        Web_Server_Invoker& invoker;     // aimed at the server
        const interrupter* stop;         // also ends the wait for another renewal; may be null
    };
    enum class Renewal {
        none,     // there is nothing new to be had
        stored,   // the user has another cookie in the store: somebody has logged in meanwhile
        login,    // a new login has brought one, which the handler has been given
        stopped,  // broken off
    };
    // Gives the new cookie. `error` is that of a login that failed or would, 0 without one.
    static Renewal renew(const Refused& refused, std::string& cookie, uint32_t& error);
};

}  // namespace dorvo

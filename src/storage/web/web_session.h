// A user's session at the web server, in which commands run: it puts its cookie on them and, when
// the server refuses that, sees to a new one.
//
// A command that ends with status 401 or 406 is run again with the cookie that the user has in the
// store, when that is another one, and else with that of a new login (web_login.h): the handler is
// asked for user and password, and handed the new cookie. Cookies and passwords of other servers
// than the one that the invoker is aimed at are none. Commands that follow use the new cookie. A
// session without a cookie tries no login: its user has logged out. What cannot be renewed stays a
// refusal.
//
// One thread a session. Neither passwords nor cookies are logged.
#pragma once

#include <cstdint>
#include <string>

#include "base/interrupter.h"
#include "http_util/http_command.h"
#include "http_util/web_server_invoker.h"
#include "settings/webauthhandler.h"
#include "storage/web/web_exchange.h"
#include "storage/web/web_login.h"

namespace dorvo {

class Web_Session {
public:
    // An empty `cookie` stands for the one that the store has of the user when it is first needed.
    // Without a user there is no login.
    explicit Web_Session(std::string user, std::string cookie = {});
    Web_Session(const Web_Session&) = delete;
    Web_Session& operator=(const Web_Session&) = delete;

    // Takes the place of the session's own handler, a WebAuthHandler; borrowed. Null: no logins.
    void set_handler(WebClientEventHandler* handler) { handler_ = handler; }

    // Breaks off commands and logins, and waiting for another session's login. Borrowed.
    void set_interrupter(const interrupter* interrupter);

    // Aim it at a server before running commands.
    Web_Server_Invoker& invoker() { return invoker_; }

    const std::string& user() const { return user_; }
    // Empty when the user has none.
    const std::string& cookie();

    // As Web_Server_Invoker::run, with the session's cookie on the request. When no new cookie is
    // to be had the answer stays the refusal. -1 with 1223 when a login was broken off. The length
    // of the request's body is added to `sent`, where there is one, for each answer.
    int run(HTTP_Command& command, uint64_t* sent = nullptr);

private:
    bool find_stored();
    Web_Login::Renewal renew();

    std::string user_;
    std::string cookie_;
    std::string found_for_;                     // the server whose cookies were last looked for
    const interrupter* interrupter_ = nullptr;  // borrowed
    Web_Server_Invoker invoker_;
    WebAuthHandler stores_;
    WebClientEventHandler* handler_ = &stores_;  // borrowed
};

}  // namespace dorvo

// What comes before and after each exchange with the web server: aiming at it, and judging what has
// become of a command that an invoker or a session has run.
//
// False leaves the thread's last error. One thread an invoker.
#pragma once

#include <cstdint>
#include <string>

#include "http_util/http_command.h"
#include "http_util/web_server_invoker.h"

namespace dorvo {

// 87 when the host is empty or the port 0; the invoker logs which.
bool aimAt(Web_Server_Invoker& invoker, const std::string& host, uint16_t port);
// At the server that the options name. 87, not logged, when they name none.
bool aimAtServerOfOptions(Web_Server_Invoker& invoker);
// The serverName() of what it is aimed at; before that, of what it will be as far as is known.
std::string serverOf(const Web_Server_Invoker& invoker);

enum class Exchanged {
    done,     // answered with 200
    broken,   // no whole answer: the last error says why
    refused,  // answered with another status, which is left as a marked error
};

// Of a command that was run: what the runner has given, and the answer. Why the service refuses is
// logged where it says so.
Exchanged judge(int result, HTTP_Command& command);
// The same with the words that most have for it. True for a 200; anything else is logged: "Failed
// to <action> {<subject>}, ...".
bool judge(int result, HTTP_Command& command, const char* action, const std::string& subject);

}  // namespace dorvo

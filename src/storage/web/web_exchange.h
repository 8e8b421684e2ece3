// One exchange with the web server: aiming at it, sending a command, judging the answer.
//
// Commands of a session renew it when the server refuses it; those of a bare invoker do not. False
// leaves the thread's last error. One thread an invoker.
#pragma once

#include <cstdint>
#include <string>

#include "http_util/http_command.h"
#include "http_util/web_server_invoker.h"

namespace dorvo {

class Web_Session;

// 87 when the host is empty or the port 0; the invoker logs which.
bool aimAt(Web_Server_Invoker& invoker, const std::string& host, uint16_t port);
// At the server that the options name. 87, not logged, when they name none.
bool aimAtServerOfOptions(Web_Server_Invoker& invoker);

enum class Exchanged {
    done,     // answered with 200
    broken,   // no whole answer: the last error says why
    refused,  // answered with another status, which is left as a marked error
};

// Runs a command and judges its answer, without a word in the log. The length of the request's body
// is added to `sent`, where there is one, as soon as the server has answered at all.
Exchanged runExchange(Web_Server_Invoker& invoker, HTTP_Command& command, uint64_t* sent = nullptr);
Exchanged runExchange(Web_Session& session, HTTP_Command& command, uint64_t* sent = nullptr);

// The same, with the words that most have for it. True for a 200; any other status is left as a
// marked error. False is logged: `action` and `subject` are what the log says of it: "Failed to
// <action> {<subject>}, ...".
bool exchange(Web_Server_Invoker& invoker, HTTP_Command& command, const char* action,
              const std::string& subject, uint64_t* sent = nullptr);
bool exchange(Web_Session& session, HTTP_Command& command, const char* action,
              const std::string& subject, uint64_t* sent = nullptr);

}  // namespace dorvo

// One exchange with the web server: aiming at it, sending a command, judging the answer.
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

// True for a 200; any other status is left as a marked error. False is logged: `action` and
// `subject` are what the log says of it: "Failed to <action> {<subject>}, ...". The length of the
// request's body is added to `sent`, where there is one, as soon as the server has answered at all.
bool exchange(Web_Server_Invoker& invoker, HTTP_Command& command, const char* action,
              const std::string& subject, uint64_t* sent = nullptr);

}  // namespace dorvo

// Logging in at the web server: a command of its own, which never logs in for itself.
#pragma once

#include <string>

#include "http_util/web_server_invoker.h"

namespace dorvo {

// Gives the text of the new session's cookie, as it is to be sent back. `invoker` is aimed at the
// server. False is logged and leaves the last error: 401 when user or password is wrong, 429 after
// too many failed tries (both marked), ERROR_INVALID_DATA when no cookie came, or what broke it.
bool logIn(Web_Server_Invoker& invoker, const std::string& user, const std::string& password,
           const std::string& machine, std::string& cookie);

}  // namespace dorvo

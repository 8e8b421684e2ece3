#include "storage/web/web_login.h"

#include <windows.h>

#include "base/log.h"
#include "storage/web/web_exchange.h"
#include "storage/web/web_requests.h"

namespace dorvo {
bool logIn(Web_Server_Invoker& invoker, const std::string& user, const std::string& password,
           const std::string& machine, std::string& cookie) {
    Command_To_Server<Login_Request, Response_T<std::string>> command("Login",
                                                                      {user, password, machine});
    if (!exchange(invoker, command, "log in user", user)) {
        return false;
    }
    const char* const sent = command.response().set_cookie();
    if (sent == nullptr || *sent == '\0') {
        log(LogLevel::error, "Login: the server sent no cookie.\n");
        SetLastError(ERROR_INVALID_DATA);
        return false;
    }
    cookie = sent;
    return true;
}

}  // namespace dorvo

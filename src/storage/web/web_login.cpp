#include "storage/web/web_login.h"

#include <windows.h>

#include "base/log.h"
#include "http_util/command_to_server.h"
#include "json_spirit/json_spirit.h"
#include "storage/web/web_exchange.h"

namespace dorvo {
namespace {

class Login_Request : public Request_T<json_spirit::Value> {
public:
    static constexpr uint64_t answer_timeout = 60'000;  // somebody waits at a terminal

    Login_Request() : Request_T("/dorvo/WebServer/user/Login.php") {}
};

}  // namespace

bool logIn(Web_Server_Invoker& invoker, const std::string& user, const std::string& password,
           const std::string& machine, std::string& cookie) {
    Command_To_Server<Login_Request, Response_T<std::string>> command("Login");
    command.request().body(
        json_spirit::Object{{"user", user}, {"password", password}, {"machine", machine}});
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

#include "storage/web/web_exchange.h"

#include <windows.h>

#include "base/http_error.h"
#include "base/log.h"
#include "httpmsg/http_names.h"
#include "settings/options.h"
#include "storage/web/web_session.h"

namespace dorvo {
namespace {

constexpr int statusOk = 200;

// `result` is what running the command has given.
Exchanged judge(int result, HTTP_Command& command) {
    if (result != 0) {
        return Exchanged::broken;
    }
    const int status = command.http_response().status();
    if (status == statusOk) {
        return Exchanged::done;
    }
    SetLastError(withHttpMark(static_cast<uint32_t>(status)));
    return Exchanged::refused;
}

bool logged(Exchanged exchanged, HTTP_Command& command, const char* action,
            const std::string& subject) {
    switch (exchanged) {
        case Exchanged::done: return true;
        case Exchanged::broken:
            log(LogLevel::error, "Failed to %s {%s}, error-code = %d, %m.\n", action,
                subject.c_str(), static_cast<int>(GetLastError()));
            return false;
        case Exchanged::refused: break;
    }
    const int status = command.http_response().status();
    log(LogLevel::error, "Failed to %s {%s}, status-code = %d, %s.\n", action, subject.c_str(),
        status, http_status_string(status));
    return false;
}

}  // namespace

bool aimAt(Web_Server_Invoker& invoker, const std::string& host, uint16_t port) {
    if (invoker.set_server(host.c_str(), port, 0)) {
        return true;
    }
    SetLastError(ERROR_INVALID_PARAMETER);
    return false;
}

bool aimAtServerOfOptions(Web_Server_Invoker& invoker) {
    std::string host;
    unsigned short port = 0;
    ATL::CComSingleton<OptionsImpl, ATL::CComAutoCriticalSection>::instance()->getServerInfo(host,
                                                                                             port);
    if (host.empty()) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return false;
    }
    return aimAt(invoker, host, port);
}

Exchanged runExchange(Web_Server_Invoker& invoker, HTTP_Command& command, uint64_t* sent) {
    const int result = invoker.run(command);
    if (result == 0 && sent != nullptr) {
        *sent += command.http_request().content_length();
    }
    return judge(result, command);
}

Exchanged runExchange(Web_Session& session, HTTP_Command& command, uint64_t* sent) {
    return judge(session.run(command, sent), command);
}

bool exchange(Web_Server_Invoker& invoker, HTTP_Command& command, const char* action,
              const std::string& subject, uint64_t* sent) {
    return logged(runExchange(invoker, command, sent), command, action, subject);
}

bool exchange(Web_Session& session, HTTP_Command& command, const char* action,
              const std::string& subject, uint64_t* sent) {
    return logged(runExchange(session, command, sent), command, action, subject);
}

}  // namespace dorvo

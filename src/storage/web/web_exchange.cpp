#include "storage/web/web_exchange.h"

#include <windows.h>

#include "base/error_codes.h"
#include "base/log.h"
#include "httpmsg/http_names.h"
#include "settings/options.h"
#include "settings/serverbinding.h"
#include "storage/refusalwords.h"
#include "storage/web/web_bodies.h"

namespace dorvo {
namespace {

constexpr int statusOk = 200;

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

std::string serverOf(const Web_Server_Invoker& invoker) {
    const HTTP_Invoker_T* const target = invoker.invoker();
    return target == nullptr ? serverOfOptions() : serverName(target->host(), target->port());
}

Exchanged judge(int result, HTTP_Command& command) {
    if (result != 0) {
        return Exchanged::broken;
    }
    const int status = command.http_response().status();
    if (status == statusOk) {
        return Exchanged::done;
    }
    const DWORD error = withHttpMark(static_cast<uint32_t>(status));
    const std::string why = readRefusal(command.error_text());
    keepRefusalWords(error, why);
    if (!why.empty()) {
        log(LogLevel::error, "The service says {%s}.\n", why);
    }
    SetLastError(error);
    return Exchanged::refused;
}

bool judge(int result, HTTP_Command& command, const char* action, const std::string& subject) {
    switch (judge(result, command)) {
        case Exchanged::done: return true;
        case Exchanged::broken:
            return logFailed("Failed to %s {%s}, error-code = %d, %m.\n", action, subject,
                             GetLastError());
        case Exchanged::refused: break;
    }
    const int status = command.http_response().status();
    return logFailed("Failed to %s {%s}, status-code = %d, %s.\n", action, subject, status,
                     http_status_string(status));
}

}  // namespace dorvo

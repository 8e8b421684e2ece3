#include "failuretext.h"

#include <windows.h>

#include "base/error_text.h"
#include "base/http_error.h"
#include "base/key_error.h"
#include "httpmsg/http_names.h"
#include "job/transferfailure.h"
#include "singletons.h"
#include "storage/local/localerror.h"

namespace dorvo::agent {
namespace {

std::string serverText() {
    std::string host;
    unsigned short port = 0;
    options().getServerInfo(host, port);
    return host + ":" + std::to_string(port);
}

}  // namespace

std::string failureText(uint32_t code) {
    if (isHttpStatus(code)) {
        const int status = static_cast<int>(withoutHttpMark(code));
        return "HTTP status " + std::to_string(status) + ", " + http_status_string(status);
    }
    if (isKeyError(code)) {
        return keyErrorText(code);
    }
    if (code == errorLocationGone) {
        return "The folder of the backups is not there, or its disk is full (error " +
               std::to_string(code) + ")";
    }
    std::string text = errorText(code);
    while (!text.empty() && text.back() == '.') {
        text.pop_back();
    }
    return text + " (error " + std::to_string(code) + ")";
}

std::string requestFailure(uint32_t code, const std::string& user) {
    constexpr uint32_t tooManyTries = withHttpMark(429);
    switch (code) {
        case errorUnauthorized:
        case errorNotAcceptable:
            return "The server no longer accepts the session of '" + user + "': run 'agent login " +
                   user + "'";
        case ERROR_INVALID_DATA:
            return "The server " + serverText() + " gives no answer that a storage server would";
        case tooManyTries: return "The server has seen too many failed logins: try again later";
        default: break;
    }
    if (isHttpStatus(code)) {
        return "The server " + serverText() + " refused the request: " + failureText(code);
    }
    return "The server " + serverText() + " cannot be reached: " + failureText(code);
}

}  // namespace dorvo::agent

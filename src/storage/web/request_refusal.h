// Why a request to the web storage service is not sent.
#pragma once

#include <windows.h>

#include "base/http_error.h"
#include "base/log.h"
#include "httpmsg/http_request.h"

namespace dorvo {

// Logs and leaves the error. Always false.
inline bool refuse(LogText<> message, DWORD error = ERROR_INVALID_PARAMETER) {
    return logFailed(error, message);
}

// A request without a cookie fails like one of a refused session.
inline bool refuseSession() {
    return refuse("The cookie is empty.\n", withHttpMark(401));
}

inline bool hasCookie(const HTTP_Request& request) {
    return request.cookie() != nullptr && *request.cookie() != '\0';
}

}  // namespace dorvo

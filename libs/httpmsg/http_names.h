// The names of HTTP: methods, header types and status codes, as numbers and as text.
#pragma once

#include "httpmsg/export.h"

namespace dorvo {

// The numbers are what requests store and what an invoker looks at.
enum HTTP_Method : int {
    HTTP_METHOD_OPTIONS = 1,
    HTTP_METHOD_GET = 2,
    HTTP_METHOD_HEAD = 3,
    HTTP_METHOD_POST = 4,
    HTTP_METHOD_PUT = 5,
    HTTP_METHOD_DELETE = 6,
    HTTP_METHOD_TRACE = 7,
    HTTP_METHOD_CONNECT = 8,
};

// A slot of HTTP_Headers each; headers are sent in this order.
enum HTTP_Head_Type : int {
    HTTP_HEAD_CACHE_CONTROL,
    HTTP_HEAD_CONNECTION,
    HTTP_HEAD_DATE,
    HTTP_HEAD_PRAGMA,
    HTTP_HEAD_TRAILER,
    HTTP_HEAD_TRANSFER_ENCODING,
    HTTP_HEAD_UPGRADE,
    HTTP_HEAD_VIA,
    HTTP_HEAD_WARNING,
    HTTP_HEAD_ACCEPT,
    HTTP_HEAD_ACCEPT_CHARSET,
    HTTP_HEAD_ACCEPT_ENCODING,
    HTTP_HEAD_ACCEPT_LANGUAGE,
    HTTP_HEAD_AUTHORIZATION,
    HTTP_HEAD_COOKIE,
    HTTP_HEAD_CONTENT_RANGE,
    HTTP_HEAD_EXPECT,
    HTTP_HEAD_EXPIRES,
    HTTP_HEAD_FROM,
    HTTP_HEAD_HOST,
    HTTP_HEAD_IF_MATCH,
    HTTP_HEAD_IF_MODIFIED_SINCE,
    HTTP_HEAD_IF_NONE_MATCH,
    HTTP_HEAD_IF_RANGE,
    HTTP_HEAD_IF_UNMODIFIED_SINCE,
    HTTP_HEAD_MAX_FORWARDS,
    HTTP_HEAD_PROXY_AUTHORIZATION,
    HTTP_HEAD_RANGE,
    HTTP_HEAD_REFERER,
    HTTP_HEAD_TE,
    HTTP_HEAD_USER_AGENT,
    HTTP_HEAD_ACCEPT_RANGES,
    HTTP_HEAD_AGE,
    HTTP_HEAD_ETAG,
    HTTP_HEAD_LOCATION,
    HTTP_HEAD_PROXY_AUTHENTICATE,
    HTTP_HEAD_RETRY_AFTER,
    HTTP_HEAD_SERVER,
    HTTP_HEAD_SET_COOKIE,
    HTTP_HEAD_VARY,
    HTTP_HEAD_WWW_AUTHENTICATE,
    HTTP_HEAD_ALLOW,
    HTTP_HEAD_CONTENT_ENCODING,
    HTTP_HEAD_CONTENT_LANGUAGE,
    HTTP_HEAD_CONTENT_LENGTH,
    HTTP_HEAD_CONTENT_TYPE,
    HTTP_HEAD_LAST_MODIFIED,
};
constexpr int HTTP_HEAD_TYPES = 47;
static_assert(HTTP_HEAD_COOKIE == 14 && HTTP_HEAD_HOST == 19 &&
              HTTP_HEAD_LAST_MODIFIED == HTTP_HEAD_TYPES - 1);

// "POST"; null for a number that names no method.
DORVO_HTTPMSG_API const char* http_method_string(int method);

// "Cookie"; null for a number that is no header type.
DORVO_HTTPMSG_API const char* http_head_string(int type);

// The header type of a name, without regard to case; -1 for null and for a name without a slot.
DORVO_HTTPMSG_API int http_head_type(const char* name);

// "Not Found"; "Unknown" for a code without a text. Never null.
DORVO_HTTPMSG_API const char* http_status_string(int status);

}  // namespace dorvo

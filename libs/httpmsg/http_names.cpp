#include "httpmsg/http_names.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

namespace dorvo {
namespace {

constexpr std::array<const char*, 9> methods = {nullptr, "OPTIONS", "GET",   "HEAD",   "POST",
                                                "PUT",   "DELETE",  "TRACE", "CONNECT"};

// In the order of HTTP_Head_Type.
constexpr std::array<const char*, HTTP_HEAD_TYPES> heads = {
    "Cache-Control",
    "Connection",
    "Date",
    "Pragma",
    "Trailer",
    "Transfer-Encoding",
    "Upgrade",
    "Via",
    "Warning",
    "Accept",
    "Accept-Charset",
    "Accept-Encoding",
    "Accept-Language",
    "Authorization",
    "Cookie",
    "Content-Range",
    "Expect",
    "Expires",
    "From",
    "Host",
    "If-Match",
    "If-Modified-Since",
    "If-None-Match",
    "If-Range",
    "If-Unmodified-Since",
    "Max-Forwards",
    "Proxy-Authorization",
    "Range",
    "Referer",
    "TE",
    "User-Agent",
    "Accept-Ranges",
    "Age",
    "ETag",
    "Location",
    "Proxy-Authenticate",
    "Retry-After",
    "Server",
    "Set-Cookie",
    "Vary",
    "WWW-Authenticate",
    "Allow",
    "Content-Encoding",
    "Content-Language",
    "Content-Length",
    "Content-Type",
    "Last-Modified",
};
static_assert(std::string_view(heads[HTTP_HEAD_COOKIE]) == "Cookie");
static_assert(std::string_view(heads[HTTP_HEAD_HOST]) == "Host");
static_assert(std::string_view(heads[HTTP_HEAD_SET_COOKIE]) == "Set-Cookie");
static_assert(std::string_view(heads[HTTP_HEAD_LAST_MODIFIED]) == "Last-Modified");

constexpr std::pair<int, const char*> statuses[] = {
    {100, "Continue"},
    {101, "Switching Protocols"},
    {200, "OK"},
    {201, "Created"},
    {202, "Accepted"},
    {203, "Non-Authoritative Information"},
    {204, "No Content"},
    {205, "Reset Content"},
    {206, "Partial Content"},
    {300, "Multiple Choices"},
    {301, "Moved Permanently"},
    {302, "Found"},
    {303, "See Other"},
    {304, "Not Modified"},
    {305, "Use Proxy"},
    {307, "Temporary Redirect"},
    {308, "Permanent Redirect"},
    {400, "Bad Request"},
    {401, "Unauthorized"},
    {402, "Payment Required"},
    {403, "Forbidden"},
    {404, "Not Found"},
    {405, "Method Not Allowed"},
    {406, "Not Acceptable"},
    {407, "Proxy Authentication Required"},
    {408, "Request Timeout"},
    {409, "Conflict"},
    {410, "Gone"},
    {411, "Length Required"},
    {412, "Precondition Failed"},
    {413, "Payload Too Large"},
    {414, "URI Too Long"},
    {415, "Unsupported Media Type"},
    {416, "Range Not Satisfiable"},
    {417, "Expectation Failed"},
    {422, "Unprocessable Entity"},
    {426, "Upgrade Required"},
    {428, "Precondition Required"},
    {429, "Too Many Requests"},
    {431, "Request Header Fields Too Large"},
    {500, "Internal Server Error"},
    {501, "Not Implemented"},
    {502, "Bad Gateway"},
    {503, "Service Unavailable"},
    {504, "Gateway Timeout"},
    {505, "HTTP Version Not Supported"},
    {507, "Insufficient Storage"},
    {511, "Network Authentication Required"},
    // Not a status that servers send: an answer whose content is not what it should be.
    {600, "Malformed Response"},
};

char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

}  // namespace

const char* http_method_string(int method) {
    return method >= 0 && static_cast<size_t>(method) < methods.size()
               ? methods[static_cast<size_t>(method)]
               : nullptr;
}

const char* http_head_string(int type) {
    return type >= 0 && type < HTTP_HEAD_TYPES ? heads[static_cast<size_t>(type)] : nullptr;
}

int http_head_type(const char* name) {
    if (name == nullptr) {
        return -1;
    }
    const std::string_view wanted(name);
    const auto* const found = std::find_if(heads.begin(), heads.end(), [&](const char* head) {
        return std::ranges::equal(std::string_view(head), wanted,
                                  [](char a, char b) { return lower(a) == lower(b); });
    });
    return found == heads.end() ? -1 : static_cast<int>(found - heads.begin());
}

const char* http_status_string(int status) {
    const auto* const found = std::ranges::lower_bound(
        statuses, status, {}, [](const std::pair<int, const char*>& entry) { return entry.first; });
    return found != std::end(statuses) && found->first == status ? found->second : "Unknown";
}

}  // namespace dorvo

#include "httpmsg/http_request.h"

#include <algorithm>

namespace dorvo {

HTTP_Request::HTTP_Request(int method, const std::string& uri, int major, int minor)
    : HTTP_Base(major, minor), method_(method) {
    this->uri(uri);
}

int HTTP_Request::uri(const std::string& uri) {
    const bool valid = !uri.empty() && std::ranges::none_of(uri, [](char c) {
        return static_cast<unsigned char>(c) <= ' ' || c == '\x7f';
    });
    if (!valid) {
        return -1;
    }
    uri_ = uri;
    return 0;
}

std::string HTTP_Request::decoded_uri() const {
    return HTTP_Query_String::decode(uri_.substr(0, uri_.find('?')), false);
}

HTTP_Query_String HTTP_Request::query_string() const {
    const size_t mark = uri_.find('?');
    return mark == std::string::npos ? HTTP_Query_String()
                                     : HTTP_Query_String(uri_.substr(mark + 1));
}

int HTTP_Request::cookie(const char* cookie) {
    return headers().put(HTTP_HEAD_COOKIE, cookie != nullptr && *cookie != '\0' ? cookie : nullptr);
}

void HTTP_Request::reset() {
    HTTP_Base::reset();
    method_ = HTTP_METHOD_GET;
    uri_.assign(1, '/');
}

}  // namespace dorvo

// A request: method, URI and headers. Its body is the business of who sends it.
#pragma once

#include <string>

#include "httpmsg/export.h"
#include "httpmsg/http_base.h"
#include "httpmsg/http_query_string.h"

namespace dorvo {

class DORVO_HTTPMSG_API HTTP_Request : public HTTP_Base {
public:
    // A URI that uri() refuses leaves "/".
    explicit HTTP_Request(int method = HTTP_METHOD_GET, const std::string& uri = "/", int major = 1,
                          int minor = 1);

    int method() const { return method_; }
    void method(int method) { method_ = method; }

    // The URI as it is sent: path and query, percent-encoded.
    const std::string& uri() const { return uri_; }
    // 0; -1 for an empty text or one with blanks or control characters, which would end the
    // request line early: the URI stays as it was.
    int uri(const std::string& uri);

    // The path without the query, percent-decoded.
    std::string decoded_uri() const;
    // What follows the question mark, decoded.
    HTTP_Query_String query_string() const;

    // The "Cookie" field. 0; -1 for a refused value; null or an empty text removes the field.
    const char* cookie() const { return headers().get(HTTP_HEAD_COOKIE); }
    int cookie(const char* cookie);

    // GET / without fields and body; the version stays.
    void reset() override;

private:
    int method_;
    std::string uri_ = "/";
};

}  // namespace dorvo

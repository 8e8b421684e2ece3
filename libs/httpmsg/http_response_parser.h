// Reads the head of a response into an HTTP_Response.
#pragma once

#include <cstddef>
#include <memory>

#include "httpmsg/export.h"
#include "httpmsg/http_parser.h"
#include "httpmsg/http_response.h"

namespace dorvo {

class DORVO_HTTPMSG_API HTTP_Response_Parser : public HTTP_Parser {
public:
    HTTP_Response_Parser();
    ~HTTP_Response_Parser() override;

    // Reads from `length` bytes at `data` and says in `consumed` how many are used up. `response`
    // must be the same object, fresh or reset, in all calls; it is complete at HEAD_DONE.
    int parse(const char* data, size_t length, size_t& consumed, HTTP_Response& response);

    // After HEAD_DONE: false for a status without a body (1xx, 204, 304), for a length of zero,
    // and where neither length nor chunks are announced.
    bool has_body() const override;

private:
    class Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace dorvo

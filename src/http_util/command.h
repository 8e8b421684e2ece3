// A command with its messages. Request is a Request_T<Body> or derived from one, Response a
// Response_T<Body>.
#pragma once

#include <string>

#include "http_util/body_codec.h"
#include "http_util/http_command.h"
#include "http_util/message_t.h"

namespace dorvo {

template <class Request, class Response>
class Command : public HTTP_Command {
public:
    using Request_Type = Request;
    using Response_Type = Response;

    explicit Command(const char* name = "name less command", Request request = Request())
        : HTTP_Command(name), request_(std::move(request)) {}

    Request& request() { return request_; }
    const Request& request() const { return request_; }
    Response& response() { return response_; }
    const Response& response() const { return response_; }

    HTTP_Request& http_request() override { return request_; }
    HTTP_Response& http_response() override { return response_; }
    Memory_Pieces request_body(std::string& text) override {
        return Body_Codec<typename Request::Body_Type>::pieces(request_.body(), text);
    }
    bool read_body(HTTP_Input_Stream& stream) override {
        return Body_Codec<typename Response::Body_Type>::read(stream, body_limit(),
                                                              response_.body());
    }
    std::string& error_text() override { return response_.error_text(); }

private:
    Request request_;
    Response response_;
};

}  // namespace dorvo

// A command to the storage service. What is special about a request is told by its class:
//
//     class Greet_Request : public Request_T<json_spirit::Value> {
//     public:
//         Greet_Request() : Request_T("/greet") {}
//         bool prepare();                                    // optional, see prepare_request
//         void handle(Response_T<json_spirit::Value>&);      // optional, see handle_response
//         static constexpr uint64_t answer_timeout = 5'000;  // optional, see HTTP_Command
//     };
//     Command_To_Server<Greet_Request, Response_T<json_spirit::Value>> greet("Greet");
//     greet.request().cookie(cookie);
//     greet.request().body(value);
//     if (invoker.run(greet) == 0 && greet.response().status() == 200) ...
#pragma once

#include "http_util/command.h"

namespace dorvo {

template <class Request, class Response>
class Command_To_Server : public Command<Request, Response> {
public:
    using Command<Request, Response>::Command;

    void handle_response() override {
        if constexpr (requires(Request & request, Response & response) {
                          request.handle(response);
                      }) {
            this->request().handle(this->response());
        }
    }
    bool prepare_request() override {
        if constexpr (requires(Request & request) { request.prepare(); }) {
            return this->request().prepare();
        }
        return true;
    }
    uint64_t answer_timeout() const override {
        if constexpr (requires { Request::answer_timeout; }) {
            return Request::answer_timeout;
        }
        return HTTP_Command::DEFAULT_ANSWER_TIMEOUT;
    }
};

}  // namespace dorvo

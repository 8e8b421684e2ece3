// One exchange with a server: a request to prepare and send, a response to receive and handle, and
// a state. HTTP_Command is what the command runner sees of it, Command has its messages, and
// Command_To_Server is one to the storage service. What is special about a request is told by its
// class:
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

#include <cstdint>
#include <string>

#include "http_util/message_t.h"

namespace dorvo {

// Derive from Command or Command_To_Server, not from this.
class HTTP_Command {
public:
    // Bit values; the passing states are never seen between two steps.
    enum State : int {
        READY = 0,
        DONE = 1,
        CONNECT_FAILED = 64,
        SENDING = 256,
        SENT = 512,
        SEND_FAILED = 1024,
        RECEIVING = 4096,
        RECEIVED = 8192,
        RECEIVE_FAILED = 16384,
    };
    static constexpr int PASSING = 16 | SENDING | RECEIVING;
    static constexpr int FAILED = CONNECT_FAILED | SEND_FAILED | RECEIVE_FAILED;

    // Called after a complete exchange, whatever the status is.
    virtual void handle_response() = 0;
    // Called before each sending. False, with the thread's last error set and the reason logged,
    // refuses the command: nothing is sent and nothing is tried again.
    virtual bool prepare_request() = 0;
    virtual ~HTTP_Command() = default;

    virtual HTTP_Request& http_request() = 0;
    virtual HTTP_Response& http_response() = 0;
    // The request's body as pieces; `text` may hold bytes made for it.
    virtual Memory_Pieces request_body(std::string& text) = 0;
    // Reads a 200's body. False, with the thread's last error, when it cannot be read, is larger
    // than body_limit() (223) or is not what it should be (13).
    virtual bool read_body(HTTP_Input_Stream& stream) = 0;
    // Where the body of any other answer goes.
    virtual std::string& error_text() = 0;

    // How many milliseconds the server may be silent before its answer, and within it: then the
    // exchange fails with 10060.
    virtual uint64_t answer_timeout() const { return DEFAULT_ANSWER_TIMEOUT; }

    // What a request waits for that the server works on: a backup that is checked and made safe, a
    // catalog that is gone through.
    static constexpr uint64_t LONG_ANSWER_TIMEOUT = uint64_t{30} * 60'000;
    static constexpr uint64_t DEFAULT_ANSWER_TIMEOUT = 180'000;

    // Prefix of every log line.
    const std::string& name() const { return name_; }
    int state() const { return state_; }
    void state(int state) { state_ = state; }

    // Largest response body that is accepted, in bytes.
    uint64_t body_limit() const { return body_limit_; }
    void body_limit(uint64_t bytes) { body_limit_ = bytes; }

protected:
    explicit HTTP_Command(const char* name) : name_(name) {}
    HTTP_Command(const HTTP_Command&) = default;
    HTTP_Command& operator=(const HTTP_Command&) = default;

private:
    static constexpr uint64_t DEFAULT_BODY_LIMIT = 64 << 20;

    std::string name_;
    int state_ = READY;
    uint64_t body_limit_ = DEFAULT_BODY_LIMIT;
};

// Request is a Request_T<Body> or derived from one, Response a Response_T<Body>.
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

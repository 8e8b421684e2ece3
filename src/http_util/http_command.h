// One exchange with a server, as the command runner sees it: a request to prepare and send, a
// response to receive and handle, and a state.
//
// Derive from Command or Command_To_Server, not from this.
#pragma once

#include <cstdint>
#include <string>

#include "http_util/fbuffer.h"
#include "httpmsg/http_request.h"
#include "httpmsg/http_response.h"

namespace dorvo {

class HTTP_Input_Stream;

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

}  // namespace dorvo

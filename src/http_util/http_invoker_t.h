// One HTTP/1.1 connection to one host and port: sends requests, receives responses.
//
// Call order: connect, send_request, the body with send_content or send_chunk, recv_response, the
// body through an HTTP_Input_Stream; then the next request. state() says what may come next;
// whatever is called out of order gives -1 and does nothing.
//
// Failures give -1 and leave a Win32 or Winsock code both in last_error() and as the thread's last
// error, with one line logged. After a failure the connection is of no more use: close() it.
//
// Receiving waits without limit but looks every second whether the job must stop, and then fails
// with 1223. Sending fails with 10060 when nothing has gone out for SEND_TIMEOUT_MS.
//
// One thread at a time. The destructor gives a connection that can serve again back to the cache
// of its connector and closes any other; close() always closes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "base/api.h"
#include "base/log.h"

struct iovec;
class ACE_Message_Block;

namespace dorvo {

class HTTP_Chunked_Decoder;
class HTTP_Connector;
class HTTP_Request;
class HTTP_Response;
class HTTP_Svc_Handler;
class interrupter;

class DORVO_JOB_API HTTP_Invoker_T {
public:
    enum State : int {
        NOT_CONNECTED = 1,
        CONNECTING = 2,
        CONNECTED = 3,
        SENDING_HEAD = 4,
        BODY_EXPECTED = 5,
        SENDING_BODY = 6,
        REQUEST_DONE = 7,
        RECEIVING_HEAD = 8,
        RECEIVING_BODY = 9,
        RESPONSE_DONE = 11,  // the connection can carry the next request
    };
    static constexpr unsigned SEND_TIMEOUT_MS = 60'000;

    HTTP_Invoker_T(const std::string& host, uint16_t port);
    // A copy names the same server; it has no connection of its own yet.
    HTTP_Invoker_T(const HTTP_Invoker_T& other);
    HTTP_Invoker_T& operator=(const HTTP_Invoker_T&) = delete;
    ~HTTP_Invoker_T();

    // In state 1: takes an idle connection to the server from the connector's cache or makes a new
    // one. Blocks as long as the system tries to connect. 0 or -1.
    int connect(HTTP_Connector& connector);
    // Really closes the connection and returns to state 1.
    void close();

    // SO_SNDBUF in bytes. -1 without a connection.
    int set_send_buffer(int32_t size);

    // In state 3 or 11: request line and headers in one gathered write. Where the request has no
    // "Host" field, the invoker's host name is sent. 0 or -1.
    int send_request(HTTP_Request& request);

    // In state 5 or 6: body bytes; gives how many went out. Of a single buffer no more is sent than
    // the announced length still allows; gathered buffers that go beyond it are an error (7).
    int64_t send_content(const void* data, uint32_t length);
    int64_t send_content(const iovec buffers[], int count);
    // In state 5 or 6: the buffers as one chunk; gives its length. Buffers of 0 bytes in all end
    // the body.
    int64_t send_chunk(const iovec buffers[], int count);

    // In state 7: receives the response's head. Ends in state 9 when a body follows, else in 11.
    int recv_response(HTTP_Response& response);

    // Waits until bytes are there and takes up to `size` of them. 0 when the peer has closed.
    int64_t wait_and_recv(void* buffer, size_t size);
    // Exactly `size` bytes from the socket: `size`, or -1.
    int64_t recv_n(void* buffer, size_t size);

    // Asked while waiting; borrowed, may be null.
    void set_interrupter(const interrupter* interrupter);

    // True while the peer has neither sent anything unasked nor closed. To be asked between two
    // exchanges; does not block.
    bool quiet() const;

    // How long the server may be silent while an answer is waited for; 0, as at first, for ever.
    void set_answer_timeout(uint64_t ms);

    int state() const { return state_; }
    uint32_t last_error() const { return last_error_; }
    bool chunked() const { return chunked_; }
    // False as soon as the connection cannot carry another request.
    bool keep_alive() const { return keep_alive_; }
    // Of the body that is being sent or received.
    uint64_t declared_length() const { return declared_; }
    uint64_t transferred() const { return transferred_; }
    const std::string& host() const { return host_; }
    uint16_t port() const { return port_; }

private:
    friend class HTTP_Input_Stream;

    int fail(uint32_t error, std::optional<LogText<std::string, unsigned>> message = {});
    int64_t recv_plain(void* buffer, size_t size);
    int64_t recv_chunked(void* buffer, size_t size);
    int64_t recv_or_fail(void* buffer, size_t size);
    int fill_buffer();
    int read_head(HTTP_Response& response, bool& body);
    void finish_response();
    void begin_exchange();

    const std::string host_;
    const uint16_t port_;
    int state_ = NOT_CONNECTED;
    uint32_t last_error_ = 0;
    bool chunked_ = false;
    bool keep_alive_ = true;
    bool head_method_ = false;
    uint64_t declared_ = 0;
    uint64_t transferred_ = 0;
    HTTP_Svc_Handler* handler_ = nullptr;  // held while connected, then the connector's or deleted
    std::unique_ptr<ACE_Message_Block> buffer_;  // received, not yet used
    std::unique_ptr<HTTP_Chunked_Decoder> decoder_;
    const interrupter* interrupter_ = nullptr;  // borrowed
    uint64_t answer_timeout_ms_ = 0;
};

// Reads the body of the response that an invoker is receiving, plain or in chunks.
//
// Bound to the invoker, which it borrows; use it in state RECEIVING_BODY. Reading to the end leaves
// the invoker in state RESPONSE_DONE.
class DORVO_JOB_API HTTP_Input_Stream {
public:
    explicit HTTP_Input_Stream(HTTP_Invoker_T& invoker) : invoker_(invoker) {}

    // Up to `size` bytes, at least one; 0 at the end of the body; -1 with the thread's last error
    // when the connection fails or ends in the middle, the framing is wrong, or the job must stop.
    // Blocks.
    int64_t read(void* buffer, size_t size);

    // Bytes of the whole body as announced, 0 when it comes in chunks.
    uint64_t announced() const { return invoker_.chunked() ? 0 : invoker_.declared_length(); }

private:
    HTTP_Invoker_T& invoker_;  // borrowed
};

}  // namespace dorvo

#include "http_util/http_invoker_t.h"

#include <ace/INET_Addr.h>
#include <ace/Message_Block.h>
#include <ace/OS_NS_errno.h>
#include <ace/os_include/netinet/os_tcp.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <vector>

#include "base/last_error.h"
#include "base/log.h"
#include "http_util/http_chunked_decoder.h"
#include "http_util/http_connections.h"
#include "httpmsg/http_request.h"

namespace dorvo {
namespace {

constexpr LogText<std::string, unsigned> cannotSendRequest =
    "Unable to send HTTP request to %s:%u: %m\n";
constexpr LogText<std::string, unsigned> cannotSendChunk =
    "Failed to send HTTP request data chunk to %s:%u: %m\n";

iovec piece(const void* data, size_t length) {
    iovec made{};
    made.iov_base = const_cast<char*>(static_cast<const char*>(data));  // only ever read
    made.iov_len = static_cast<u_long>(length);
    return made;
}

iovec piece(const char* text) {
    return piece(text, std::strlen(text));
}

uint64_t total_of(const iovec buffers[], int count) {
    uint64_t total = 0;
    for (int i = 0; i < count; ++i) {
        total += buffers[i].iov_len;
    }
    return total;
}

}  // namespace

HTTP_Invoker_T::HTTP_Invoker_T(const std::string& host, uint16_t port) : host_(host), port_(port) {}

HTTP_Invoker_T::HTTP_Invoker_T(const HTTP_Invoker_T& other)
    : host_(other.host_), port_(other.port_), interrupter_(other.interrupter_) {}

HTTP_Invoker_T::~HTTP_Invoker_T() {
    const bool reusable = (state_ == CONNECTED || state_ == RESPONSE_DONE) && keep_alive_;
    if (handler_ != nullptr && reusable) {
        const LastErrorGuard keep;
        handler_->set_interrupter(nullptr);
        handler_->idle();
        return;
    }
    close();
}

int HTTP_Invoker_T::connect(HTTP_Connector& connector) {
    if (state_ != NOT_CONNECTED) {
        return -1;
    }
    state_ = CONNECTING;
    last_error_ = 0;
    keep_alive_ = true;
    ACE_INET_Addr address;
    HTTP_Svc_Handler* handler = nullptr;
    errno = 0;
    if (address.set(port_, host_.c_str()) == -1) {
        last_error_ = errno != 0 ? HTTP_Svc_Handler::error_of_ace() : WSAHOST_NOT_FOUND;
    } else if (connector.connect(handler, address) == -1) {
        last_error_ = HTTP_Svc_Handler::error_of_ace();
        handler = nullptr;
    }
    if (handler == nullptr) {
        SetLastError(last_error_);
        log(LogLevel::error, "Failed to connect HTTP %s:%u, %d: %m\n", host_, port_, last_error_);
        return -1;
    }
    handler_ = handler;
    int on = 1;
    if (handler_->peer().set_option(IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on)) == -1) {
        const uint32_t error = HTTP_Svc_Handler::error_of_ace();
        const LastErrorGuard keep;
        SetLastError(error);
        log(LogLevel::error, "Failed to disable nagle algorithm: %s:%u, %d: %m\n", host_, port_,
            error);
    }
    handler_->set_interrupter(interrupter_);
    handler_->set_patience(answer_timeout_ms_);
    state_ = CONNECTED;
    return 0;
}

void HTTP_Invoker_T::set_interrupter(const interrupter* interrupter) {
    interrupter_ = interrupter;
    if (handler_ != nullptr) {
        handler_->set_interrupter(interrupter);
    }
}

void HTTP_Invoker_T::set_answer_timeout(uint64_t ms) {
    answer_timeout_ms_ = ms;
    if (handler_ != nullptr) {
        handler_->set_patience(ms);
    }
}

void HTTP_Invoker_T::close() {
    if (handler_ != nullptr) {
        const LastErrorGuard keep;
        handler_->close();
        handler_ = nullptr;
    }
    state_ = NOT_CONNECTED;
}

bool HTTP_Invoker_T::quiet() const {
    const LastErrorGuard keep;
    return handler_ != nullptr && handler_->quiet();
}

int HTTP_Invoker_T::set_send_buffer(int32_t size) {
    if (handler_ == nullptr) {
        return -1;
    }
    int value = size;
    return handler_->peer().set_option(SOL_SOCKET, SO_SNDBUF, &value, sizeof(value));
}

void HTTP_Invoker_T::begin_exchange() {
    last_error_ = 0;
    declared_ = 0;
    transferred_ = 0;
}

int HTTP_Invoker_T::fail(uint32_t error, std::optional<LogText<std::string, unsigned>> message) {
    last_error_ = error;
    SetLastError(error);
    if (message) {
        log(LogLevel::error, *message, host_, port_);
    }
    return -1;
}

int HTTP_Invoker_T::send_request(HTTP_Request& request) {
    if (state_ != CONNECTED && state_ != RESPONSE_DONE) {
        return -1;
    }
    state_ = SENDING_HEAD;
    begin_exchange();
    chunked_ = request.chunked_transfer_encoding();
    keep_alive_ = request.keep_alive();
    const int method = request.method();
    head_method_ = method == HTTP_METHOD_HEAD;
    const char* const name = http_method_string(method);
    if (name == nullptr) {
        return fail(ERROR_INVALID_PARAMETER, cannotSendRequest);
    }

    std::array<iovec, 5 + 4 * HTTP_HEAD_TYPES + 1> pieces;
    size_t count = 0;
    char version[32];
    static_cast<void>(std::snprintf(version, sizeof(version), "%d.%d\r\n", request.major_version(),
                                    request.minor_version()));
    pieces[count++] = piece(name);
    pieces[count++] = piece(" ", 1);
    pieces[count++] = piece(request.uri().data(), request.uri().size());
    pieces[count++] = piece(" HTTP/", 6);
    pieces[count++] = piece(version);
    for (int type = 0; type < HTTP_HEAD_TYPES; ++type) {
        const char* value = request.headers().get(type);
        if (value == nullptr && type == HTTP_HEAD_HOST) {
            value = host_.c_str();
        }
        if (value != nullptr) {
            pieces[count++] = piece(http_head_string(type));
            pieces[count++] = piece(": ", 2);
            pieces[count++] = piece(value);
            pieces[count++] = piece("\r\n", 2);
        }
    }
    pieces[count++] = piece("\r\n", 2);
    if (!handler_->send_all(pieces.data(), count, SEND_TIMEOUT_MS)) {
        return fail(GetLastError(), cannotSendRequest);
    }

    const bool may_have_body = method == HTTP_METHOD_POST || method == HTTP_METHOD_PUT;
    if (may_have_body && !chunked_) {
        declared_ = request.content_length();
    }
    state_ = may_have_body && (chunked_ || declared_ != 0) ? BODY_EXPECTED : REQUEST_DONE;
    return 0;
}

int64_t HTTP_Invoker_T::send_content(const void* data, uint32_t length) {
    if (state_ != BODY_EXPECTED && state_ != SENDING_BODY) {
        return -1;
    }
    state_ = SENDING_BODY;
    const uint64_t allowed = std::min<uint64_t>(length, declared_ - transferred_);
    iovec one = piece(data, static_cast<size_t>(allowed));
    if (!handler_->send_all(&one, 1, SEND_TIMEOUT_MS)) {
        return fail(GetLastError(), cannotSendRequest);
    }
    transferred_ += allowed;
    if (transferred_ == declared_ && !chunked_) {
        state_ = REQUEST_DONE;
    }
    return static_cast<int64_t>(allowed);
}

int64_t HTTP_Invoker_T::send_content(const iovec buffers[], int count) {
    if (state_ != BODY_EXPECTED && state_ != SENDING_BODY) {
        return -1;
    }
    state_ = SENDING_BODY;
    const uint64_t total = total_of(buffers, count);
    std::vector<iovec> pieces(buffers, buffers + count);
    if (!handler_->send_all(pieces.data(), pieces.size(), SEND_TIMEOUT_MS)) {
        return fail(GetLastError(), cannotSendChunk);
    }
    transferred_ += total;
    if (transferred_ > declared_) {
        fail(E2BIG,
             LogText<std::string, unsigned>(
                 "Send too much request content to %s:%u and the connection is corrupted.\n"));
        errno = E2BIG;
        return -1;
    }
    if (transferred_ == declared_) {
        state_ = REQUEST_DONE;
    }
    return static_cast<int64_t>(total);
}

int64_t HTTP_Invoker_T::send_chunk(const iovec buffers[], int count) {
    if (state_ != BODY_EXPECTED && state_ != SENDING_BODY) {
        return -1;
    }
    state_ = SENDING_BODY;
    const uint64_t total = total_of(buffers, count);
    char header[32];
    char* end = std::to_chars(header, header + sizeof(header) - 2, total, 16).ptr;
    *end++ = '\r';
    *end++ = '\n';
    std::vector<iovec> pieces;
    pieces.reserve(static_cast<size_t>(count) + 2);
    pieces.push_back(piece(header, static_cast<size_t>(end - header)));
    pieces.insert(pieces.end(), buffers, buffers + count);
    pieces.push_back(piece("\r\n", 2));
    if (!handler_->send_all(pieces.data(), pieces.size(), SEND_TIMEOUT_MS)) {
        return fail(GetLastError(), cannotSendChunk);
    }
    transferred_ += total;
    if (total == 0) {
        state_ = REQUEST_DONE;
    }
    return static_cast<int64_t>(total);
}

}  // namespace dorvo

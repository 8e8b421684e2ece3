// The receiving half of HTTP_Invoker_T, heads and bodies of responses, and its input stream.
#include <ace/Message_Block.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <optional>

#include "base/log.h"
#include "http_util/http_chunked_decoder.h"
#include "http_util/http_invoker_t.h"
#include "http_util/http_svc_handler.h"
#include "httpmsg/http_response_parser.h"

namespace dorvo {

int HTTP_Invoker_T::recv_response(HTTP_Response& response) {
    if (state_ != REQUEST_DONE) {
        return -1;
    }
    state_ = RECEIVING_HEAD;
    begin_exchange();
    if (buffer_ == nullptr) {
        buffer_.reset(new (std::nothrow) ACE_Message_Block(HTTP_Parser::HEAD_LIMIT + 1));
        if (buffer_ == nullptr || buffer_->size() == 0) {
            buffer_.reset();
            errno = ENOMEM;
            return fail(ENOMEM);
        }
    }
    buffer_->reset();
    bool body = false;
    if (read_head(response, body) != 0) {
        return -1;
    }
    keep_alive_ = keep_alive_ && response.keep_alive();
    chunked_ = response.chunked_transfer_encoding();
    if (!body || head_method_) {
        finish_response();
        return 0;
    }
    state_ = RECEIVING_BODY;
    if (chunked_) {
        if (decoder_ == nullptr) {
            decoder_ = std::make_unique<HTTP_Chunked_Decoder>();
        }
        decoder_->reset();
    } else {
        declared_ = response.content_length();
    }
    return 0;
}

int HTTP_Invoker_T::read_head(HTTP_Response& response, bool& body) {
    std::optional<HTTP_Response_Parser> parser(std::in_place);
    for (;;) {
        size_t consumed = 0;
        const int result = parser->parse(buffer_->rd_ptr(), buffer_->length(), consumed, response);
        buffer_->rd_ptr(consumed);
        if (result == HTTP_Parser::HEAD_DONE) {
            // Interim answers announce the real one.
            if (response.status() >= 200 || response.status() == 101) {
                body = parser->has_body();
                return 0;
            }
            parser.emplace();
            response.reset();
            continue;
        }
        if (result != HTTP_Parser::NOT_BEGUN && result != HTTP_Parser::IN_HEAD) {
            return fail(ERROR_INVALID_DATA);
        }
        if (fill_buffer() != 0) {
            return -1;
        }
    }
}

// More bytes behind those that are not used yet. One byte of the buffer always stays free.
int HTTP_Invoker_T::fill_buffer() {
    if (buffer_->length() == 0) {
        buffer_->reset();
    } else {
        buffer_->crunch();
    }
    const size_t room = buffer_->space() - 1;
    if (room == 0) {
        return fail(ERROR_INVALID_DATA);
    }
    const int64_t got = recv_or_fail(buffer_->wr_ptr(), room);
    if (got < 0) {
        return -1;
    }
    buffer_->wr_ptr(static_cast<size_t>(got));
    return 0;
}

int64_t HTTP_Invoker_T::wait_and_recv(void* buffer, size_t size) {
    if (handler_ == nullptr) {
        return fail(WSAENOTCONN);
    }
    const int64_t got = handler_->wait_and_recv(buffer, size);
    if (got < 0) {
        const uint32_t error = GetLastError();
        return fail(error, error == ERROR_CANCELLED
                               ? LogText<std::string, unsigned>(
                                     "Failed to wait for HTTP ready to read from %s:%u %m\n")
                               : LogText<std::string, unsigned>(
                                     "Failed to receive HTTP data from %s:%u %m\n"));
    }
    return got;
}

int64_t HTTP_Invoker_T::recv_or_fail(void* buffer, size_t size) {
    const int64_t got = wait_and_recv(buffer, size);
    if (got == 0) {
        return fail(WSAEDISCON,
                    LogText<std::string, unsigned>("The HTTP connection is closed by %s:%u.\n"));
    }
    return got;
}

int64_t HTTP_Invoker_T::recv_n(void* buffer, size_t size) {
    size_t received = 0;
    while (received < size) {
        const int64_t got = recv_or_fail(static_cast<char*>(buffer) + received, size - received);
        if (got < 0) {
            return -1;
        }
        received += static_cast<size_t>(got);
    }
    return static_cast<int64_t>(received);
}

int64_t HTTP_Input_Stream::read(void* buffer, size_t size) {
    if (invoker_.state_ == HTTP_Invoker_T::RESPONSE_DONE) {
        return 0;
    }
    if (invoker_.state_ != HTTP_Invoker_T::RECEIVING_BODY) {
        return -1;
    }
    return invoker_.chunked_ ? invoker_.recv_chunked(buffer, size)
                             : invoker_.recv_plain(buffer, size);
}

int64_t HTTP_Invoker_T::recv_plain(void* buffer, size_t size) {
    const auto wanted = static_cast<size_t>(std::min<uint64_t>(size, declared_ - transferred_));
    size_t got = std::min(wanted, buffer_->length());
    if (got != 0) {
        std::memcpy(buffer, buffer_->rd_ptr(), got);
        buffer_->rd_ptr(got);
    } else {
        const int64_t received = recv_or_fail(buffer, wanted);
        if (received < 0) {
            return -1;
        }
        got = static_cast<size_t>(received);
    }
    transferred_ += got;
    if (transferred_ == declared_) {
        finish_response();
    }
    return static_cast<int64_t>(got);
}

int64_t HTTP_Invoker_T::recv_chunked(void* buffer, size_t size) {
    for (;;) {
        size_t consumed = 0;
        size_t produced = 0;
        const auto result = decoder_->decode(buffer_->rd_ptr(), buffer_->length(), consumed,
                                             static_cast<char*>(buffer), size, produced);
        buffer_->rd_ptr(consumed);
        transferred_ += produced;
        if (result == HTTP_Chunked_Decoder::BAD) {
            return fail(ERROR_INVALID_DATA);
        }
        if (result == HTTP_Chunked_Decoder::END) {
            finish_response();
            return static_cast<int64_t>(produced);
        }
        if (produced != 0) {
            return static_cast<int64_t>(produced);
        }
        // Data of a chunk goes straight to its place, everything else through the buffer.
        if (const uint64_t left = decoder_->data_left(); left != 0) {
            const int64_t got =
                recv_or_fail(buffer, static_cast<size_t>(std::min<uint64_t>(size, left)));
            if (got > 0) {
                decoder_->took(static_cast<uint64_t>(got));
                transferred_ += static_cast<uint64_t>(got);
            }
            return got;
        }
        if (fill_buffer() != 0) {
            return -1;
        }
    }
}

// Bytes behind the response answer nothing that was asked: the connection is out of step.
void HTTP_Invoker_T::finish_response() {
    state_ = RESPONSE_DONE;
    if (buffer_->length() != 0) {
        keep_alive_ = false;
    }
}

}  // namespace dorvo

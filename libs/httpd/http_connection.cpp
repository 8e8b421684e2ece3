#include "httpd/http_connection.h"

#include <algorithm>
#include <boost/asio/dispatch.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/write.hpp>
#include <cstdio>
#include <utility>

#include "httpd/http_target.h"

namespace dorvo {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = boost::beast::http;

namespace {

constexpr size_t partBytes = size_t{32} * 1024;
// Beyond two heads: what one read may bring. No field of a chunk or of a trailer is longer.
constexpr size_t readBytes = size_t{64} * 1024;
constexpr size_t lingerBytes = size_t{1} << 20U;
constexpr std::chrono::seconds lingerTime(2);
constexpr const char* continueText = "HTTP/1.1 100 Continue\r\n\r\n";

std::string text(boost::string_view view) {
    return {view.data(), view.size()};
}

}  // namespace

HttpConnection::HttpConnection(asio::ip::tcp::socket socket, const Shared& shared, uint64_t number)
    : shared_(shared),
      number_(number),
      stream_(std::move(socket)),
      buffer_(2 * shared.limits.headBytes + readBytes),
      part_(partBytes),
      patience_(stream_.get_executor()) {
    beast::error_code error;
    const auto endpoint = stream_.socket().remote_endpoint(error);
    peer_ = error ? "-" : endpoint.address().to_string();
    stream_.socket().set_option(asio::ip::tcp::no_delay(true), error);
}

HttpConnection::~HttpConnection() {
    shared_.open.leave(number_);
}

void HttpConnection::start() {
    asio::dispatch(stream_.get_executor(), [self = shared_from_this()] { self->waitForRequest(); });
}

void HttpConnection::turnAway() {
    const WebReply reply = shared_.service.refuse(503, "too many connections");
    const std::string text =
        "HTTP/1.1 503 Service Unavailable\r\nContent-Type: " + reply.contentType +
        "\r\nConnection: close\r\nContent-Length: " + std::to_string(reply.body.size()) +
        "\r\n\r\n" + reply.body;
    auto& socket = stream_.socket();
    beast::error_code ignored;
    socket.non_blocking(true, ignored);
    socket.write_some(asio::buffer(text), ignored);
    socket.shutdown(asio::socket_base::shutdown_both, ignored);
}

void HttpConnection::finish() {
    asio::post(stream_.get_executor(), [self = shared_from_this()] {
        self->finishing_ = true;
        if (self->idle_ || self->poll_) {
            self->close();
        }
    });
}

void HttpConnection::abort() {
    asio::post(stream_.get_executor(), [self = shared_from_this()] { self->close(); });
}

void HttpConnection::waitForRequest() {
    if (finishing_) {
        close();
        return;
    }
    idle_ = true;
    if (buffer_.size() != 0) {
        readHead();
        return;
    }
    stream_.expires_after(shared_.limits.idle);
    stream_.async_read_some(buffer_.prepare(shared_.limits.headBytes),
                            [self = shared_from_this()](beast::error_code error, size_t bytes) {
                                if (error) {
                                    self->close();
                                    return;
                                }
                                self->buffer_.commit(bytes);
                                self->readHead();
                            });
}

void HttpConnection::readHead() {
    idle_ = false;
    begin_ = std::chrono::steady_clock::now();
    request_ = {};
    refusal_.reset();
    bodyBytes_ = 0;
    target_ = "-";
    method_ = "-";
    parser_.emplace();
    parser_->header_limit(static_cast<std::uint32_t>(shared_.limits.headBytes));
    parser_->body_limit(shared_.limits.discardedBytes);
    stream_.expires_after(shared_.limits.head);
    http::async_read_header(stream_, buffer_, *parser_,
                            [self = shared_from_this()](beast::error_code error, size_t) {
                                if (error) {
                                    self->onHeadError(error);
                                } else {
                                    self->onHead();
                                }
                            });
}

void HttpConnection::onHeadError(beast::error_code error) {
    if (error == http::error::header_limit) {
        answerAndEnd(413, "the request's head is too large");
    } else if (error == http::error::body_limit) {
        target_ = text(parser_->get().target());
        method_ = text(parser_->get().method_string());
        answerAndEnd(413, "the request's body is too large");
    } else if (error.category() == http::make_error_code(http::error::bad_version).category() &&
               error != http::error::end_of_stream && error != http::error::partial_message) {
        answerAndEnd(400, "the request is malformed");
    } else {
        close();
    }
}

void HttpConnection::onHead() {
    const auto& head = parser_->get();
    target_ = text(head.target());
    method_ = text(head.method_string());
    request_.method = method_;
    request_.host = text(head[http::field::host]);
    request_.authorization = text(head[http::field::authorization]);
    request_.cookie = text(head[http::field::cookie]);
    request_.contentType = text(head[http::field::content_type]);
    request_.fromPage =
        head.find(http::field::origin) != head.end() || head.find("Sec-Fetch-Site") != head.end();
    request_.peer = peer_;
    request_.mark = mark_;
    admit();
    const auto length = parser_->content_length();
    if (!refusal_ && length && *length > admission_.bodyLimit) {
        refusal_ = shared_.service.refuse(413, "the request's body is too large");
    }
    const size_t mayCome = std::min<uint64_t>(admission_.bodyLimit, length.value_or(SIZE_MAX));
    if (!refusal_ && mayCome > admission_.judgedBytes) {
        judgeLargeBody();
        return;
    }
    takeBody();
}

void HttpConnection::admit() {
    const auto& head = parser_->get();
    admission_ = {};
    if (head.count(http::field::host) > 1 || head.count(http::field::authorization) > 1) {
        refusal_ = shared_.service.refuse(400, "a header field is there twice");
    } else if (auto path = decodedPath(target_)) {
        request_.path = std::move(*path);
        admission_ = shared_.service.admit(request_);
        refusal_ = std::move(admission_.refusal);
    } else {
        refusal_ = shared_.service.refuse(400, "the path is malformed");
    }
    if (admission_.known != known_) {
        known_ = admission_.known;
        shared_.open.setKnown(number_, known_);
    }
}

void HttpConnection::takeBody() {
    if (const auto length = parser_->content_length(); length && !refusal_) {
        request_.body.reserve(*length);
    }
    if (beast::iequals(parser_->get()[http::field::expect], "100-continue")) {
        stream_.expires_after(shared_.limits.stall);
        asio::async_write(stream_,
                          asio::buffer(continueText, std::char_traits<char>::length(continueText)),
                          [self = shared_from_this()](beast::error_code error, size_t) {
                              if (error) {
                                  self->close();
                              } else {
                                  self->readBody();
                              }
                          });
        return;
    }
    readBody();
}

void HttpConnection::judgeLargeBody() {
    stream_.expires_never();
    asio::post(shared_.workers, [self = shared_from_this()] {
        auto refusal = self->shared_.service.judgeLargeBody(self->request_);
        asio::post(self->stream_.get_executor(), [self, refusal = std::move(refusal)]() mutable {
            self->refusal_ = std::move(refusal);
            self->takeBody();
        });
    });
}

void HttpConnection::readBody() {
    if (parser_->is_done()) {
        dispatch();
        return;
    }
    parser_->get().body().data = part_.data();
    parser_->get().body().size = part_.size();
    stream_.expires_after(shared_.limits.stall);
    http::async_read(stream_, buffer_, *parser_,
                     [self = shared_from_this()](beast::error_code error, size_t) {
                         if (error && error != http::error::need_buffer) {
                             if (error == http::error::body_limit) {
                                 self->answerAndEnd(413, "the request's body is too large");
                             } else if (error == http::error::bad_chunk ||
                                        error == http::error::bad_chunk_extension ||
                                        error == http::error::buffer_overflow) {
                                 self->answerAndEnd(400, "the request's body is malformed");
                             } else {
                                 self->close();
                             }
                             return;
                         }
                         self->onBodyPart(self->parser_->get().body().size);
                     });
}

void HttpConnection::onBodyPart(size_t room) {
    const size_t bytes = part_.size() - room;
    bodyBytes_ += bytes;
    if (!refusal_ && bodyBytes_ > admission_.bodyLimit) {
        refusal_ = shared_.service.refuse(413, "the request's body is too large");
        request_.body = {};
    }
    if (!refusal_) {
        request_.body.append(part_.data(), bytes);
    }
    readBody();
}

void HttpConnection::dispatch() {
    stream_.expires_never();
    if (refusal_) {
        answer(std::move(*refusal_));
        return;
    }
    awaited_ = true;
    const uint64_t turn = ++turn_;
    if (admission_.watched) {
        gone_ = std::make_shared<std::atomic<bool>>(false);
        request_.gone = gone_;
        watch();
    }
    asio::post(shared_.workers, [self = shared_from_this(), turn, request = std::move(request_)] {
        auto poll = self->shared_.service.handle(request, [self, turn](WebReply reply) {
            asio::post(self->stream_.get_executor(),
                       [self, turn, reply = std::move(reply)]() mutable {
                           self->onReply(turn, std::move(reply));
                       });
        });
        if (poll) {
            asio::post(self->stream_.get_executor(),
                       [self, turn, poll = std::move(*poll)] { self->onPoll(turn, poll); });
        }
    });
}

void HttpConnection::onPoll(uint64_t turn, const LongPoll& poll) {
    if (turn != turn_ || !awaited_) {
        poll.withdraw();
        return;
    }
    poll_ = poll;
    if (finishing_) {
        close();
        return;
    }
    if (poll.patience) {
        patience_.expires_after(*poll.patience);
        patience_.async_wait([self = shared_from_this(), turn](beast::error_code stopped) {
            if (!stopped && turn == self->turn_ && self->poll_) {
                const WebReply late = self->poll_->late;
                self->withdraw();
                self->onReply(turn, late);
            }
        });
    }
    if (!watching_) {
        watch();
    }
}

void HttpConnection::onReply(uint64_t turn, WebReply reply) {
    if (turn != turn_ || !std::exchange(awaited_, false)) {
        return;
    }
    poll_.reset();
    gone_.reset();
    patience_.cancel();
    if (watching_) {
        reply_ = std::move(reply);
        stream_.cancel();
    } else {
        answer(std::move(reply));
    }
}

void HttpConnection::watch() {
    if (buffer_.size() > shared_.limits.headBytes) {
        close();
        return;
    }
    watching_ = true;
    stream_.async_read_some(buffer_.prepare(shared_.limits.headBytes),
                            [self = shared_from_this()](beast::error_code error, size_t bytes) {
                                self->watching_ = false;
                                self->buffer_.commit(bytes);
                                self->onWatched(error);
                            });
}

void HttpConnection::onWatched(beast::error_code error) {
    if (reply_ && (!error || error == asio::error::operation_aborted)) {
        answer(std::move(*std::exchange(reply_, {})));
    } else if (error) {
        close();
    } else {
        watch();
    }
}

void HttpConnection::withdraw() {
    if (auto poll = std::exchange(poll_, {})) {
        poll->withdraw();
    }
}

void HttpConnection::answer(WebReply reply) {
    const auto& head = parser_->get();
    const bool keepAlive = head.keep_alive() && !finishing_;
    response_.emplace(static_cast<http::status>(reply.status), head.version());
    response_->set(http::field::content_type, reply.contentType);
    if (!reply.setCookie.empty()) {
        response_->set(http::field::set_cookie, reply.setCookie);
    }
    if (!reply.allow.empty()) {
        response_->set(http::field::allow, reply.allow);
    }
    mark_ = reply.mark;
    response_->keep_alive(keepAlive);
    logRequest(reply);
    response_->body() = std::move(reply.body);
    response_->prepare_payload();
    request_.body = {};
    write(keepAlive);
}

// For requests that cannot be read to their end.
void HttpConnection::answerAndEnd(int status, const char* why) {
    WebReply reply = shared_.service.refuse(status, why);
    response_.emplace(static_cast<http::status>(status), 11U);
    response_->set(http::field::content_type, reply.contentType);
    response_->keep_alive(false);
    logRequest(reply);
    response_->body() = std::move(reply.body);
    response_->prepare_payload();
    write(false);
}

void HttpConnection::write(bool keepAlive) {
    serializer_.emplace(*response_);
    writeSome(keepAlive);
}

// A large answer may take a slow client any time, as long as it takes something.
void HttpConnection::writeSome(bool keepAlive) {
    stream_.expires_after(shared_.limits.stall);
    http::async_write_some(stream_, *serializer_,
                           [self = shared_from_this(), keepAlive](beast::error_code error, size_t) {
                               if (error) {
                                   self->close();
                               } else if (!self->serializer_->is_done()) {
                                   self->writeSome(keepAlive);
                               } else {
                                   self->onWritten(keepAlive);
                               }
                           });
}

void HttpConnection::onWritten(bool keepAlive) {
    if (keepAlive) {
        response_->body() = {};
        waitForRequest();
    } else if (parser_->is_done() && buffer_.size() == 0) {
        close();
    } else {
        beast::error_code ignored;
        stream_.socket().shutdown(asio::socket_base::shutdown_send, ignored);
        stream_.expires_after(lingerTime);
        linger();
    }
}

// Closing over bytes that nobody read would make the system throw the answer away.
void HttpConnection::linger() {
    stream_.async_read_some(asio::buffer(part_),
                            [self = shared_from_this()](beast::error_code error, size_t bytes) {
                                self->lingered_ += bytes;
                                if (error || self->lingered_ > lingerBytes) {
                                    self->close();
                                } else {
                                    self->linger();
                                }
                            });
}

void HttpConnection::close() {
    withdraw();
    awaited_ = false;
    if (gone_) {
        *gone_ = true;
    }
    patience_.cancel();
    beast::error_code ignored;
    stream_.socket().close(ignored);
    stream_.cancel();
}

void HttpConnection::logRequest(const WebReply& reply) const {
    const auto took = std::chrono::steady_clock::now() - begin_;
    std::array<char, 64> numbers{};
    static_cast<void>(std::snprintf(numbers.data(), numbers.size(), "%d %zu %.1f", reply.status,
                                    bodyBytes_,
                                    std::chrono::duration<double, std::milli>(took).count()));
    shared_.log(peer_ + " " + method_ + " " + target_ + " " + numbers.data() + " " +
                (reply.user.empty() ? "-" : reply.user));
}

}  // namespace dorvo

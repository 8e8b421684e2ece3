// From a request that is whole to its answer, and the connection's end.
#include <algorithm>
#include <array>
#include <boost/asio/post.hpp>
#include <cstdio>

#include "httpd/http_connection.h"
#include "httpd/http_head.h"

namespace dorvo {

namespace asio = boost::asio;
namespace beast = boost::beast;

namespace {

constexpr size_t writeBytes = size_t{256} << 10U;
constexpr size_t lingerBytes = size_t{1} << 20U;
constexpr std::chrono::seconds lingerTime(2);

}  // namespace

void HttpConnection::dispatch() {
    if (closed_) {
        return;
    }
    stream_.expires_never();
    // What it comes to while it is handled is taken only now: for as long as that, and no client's
    // slowness, lasts.
    const size_t size = request_.body.size();
    const bool fits = size <= shared_.limits.smallBytes || memory_.raise(size * admission_.weight);
    if (!refusal_ && (!fits || memory_.clientHasTooMuch())) {
        refuseForMemory();
    }
    if (refusal_) {
        answer(std::move(*std::exchange(refusal_, {})));
        return;
    }
    awaited_ = true;
    setKnown(known_);
    const uint64_t turn = ++turn_;
    if (admission_.watched) {
        gone_ = std::make_shared<std::atomic<bool>>(false);
        request_.gone = gone_;
        watch();
    }
    asio::post(shared_.workers, guardedWork([this, turn, request = std::move(request_)] {
                   callService(request, turn);
               }));
}

// On a worker.
void HttpConnection::callService(const WebRequest& request, uint64_t turn) {
    auto poll = shared_.service.handle(request, [self = shared_from_this(), turn](WebReply reply) {
        auto* const raw = self.get();
        asio::post(raw->stream_.get_executor(),
                   raw->guarded([raw, turn, reply = std::move(reply)]() mutable {
                       raw->onReply(turn, std::move(reply));
                   }));
    });
    if (poll) {
        asio::post(stream_.get_executor(),
                   guarded([this, turn, poll = std::move(*poll)] { onPoll(turn, poll); }));
    }
}

void HttpConnection::onPoll(uint64_t turn, const LongPoll& poll) {
    if (turn != turn_ || !awaited_) {
        poll.withdraw();
        return;
    }
    poll_ = poll;
    if (poll.work) {
        return;
    }
    if (finishing_) {
        close();
        return;
    }
    if (poll.patience) {
        patience_.expires_after(*poll.patience);
        patience_.async_wait(guarded([this, turn](beast::error_code stopped) {
            if (!stopped && turn == turn_ && poll_) {
                const WebReply late = poll_->late;
                withdraw();
                onReply(turn, late);
            }
        }));
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
                            guarded([this](beast::error_code error, size_t bytes) {
                                watching_ = false;
                                buffer_.commit(bytes);
                                onWatched(error);
                            }));
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
    setKnown(reply.known.value_or(known_));
    endsAfterReply_ = !keepAlive_ || finishing_;
    mark_ = reply.mark;
    write(std::move(reply));
}

// For requests that cannot be read to their end: what follows is not to be taken for another.
void HttpConnection::answerAndEnd(int status, const char* why) {
    endsAfterReply_ = true;
    write(shared_.service.refuse(status, why));
}

void HttpConnection::write(WebReply reply) {
    logRequest(reply);
    replyHead_ = replyHead(reply, minor_, !endsAfterReply_);
    replyBody_ = std::move(reply.body);
    if (method_ == "HEAD") {
        replyBody_.clear();
    }
    request_.body = {};
    memory_.giveBack();
    if (replyBody_.size() > shared_.limits.smallBytes) {
        memory_.count(replyBody_.size());
    }
    written_ = 0;
    writeSome();
}

// A large answer may take a slow client any time, as long as it takes something. Windows calls a
// write done when all of it is, so that each is for a part.
void HttpConnection::writeSome() {
    const size_t ofHead = std::min(written_, replyHead_.size());
    const std::array<asio::const_buffer, 2> rest{
        asio::buffer(replyHead_) + ofHead,
        asio::buffer(asio::buffer(replyBody_) + (written_ - ofHead), writeBytes)};
    stream_.expires_after(shared_.limits.stall);
    stream_.async_write_some(rest, guarded([this](beast::error_code error, size_t bytes) {
                                 written_ += bytes;
                                 if (error) {
                                     close();
                                 } else if (written_ < replyHead_.size() + replyBody_.size()) {
                                     writeSome();
                                 } else {
                                     onWritten();
                                 }
                             }));
}

void HttpConnection::onWritten() {
    replyBody_ = {};
    memory_.giveBack();
    if (!endsAfterReply_) {
        waitForRequest();
    } else if (body_.done() && buffer_.size() == 0) {
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
    buffer_.clear();
    stream_.async_read_some(buffer_.prepare(shared_.limits.headBytes),
                            guarded([this](beast::error_code error, size_t bytes) {
                                lingered_ += bytes;
                                if (error || lingered_ > lingerBytes) {
                                    close();
                                } else {
                                    linger();
                                }
                            }));
}

void HttpConnection::close() {
    closed_ = true;
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
    static_cast<void>(std::snprintf(numbers.data(), numbers.size(), "%d %llu %.1f", reply.status,
                                    static_cast<unsigned long long>(bodyBytes_),
                                    std::chrono::duration<double, std::milli>(took).count()));
    shared_.log(client_ + " " + method_ + " " + target_ + " " + numbers.data() + " " +
                (reply.user.empty() ? "-" : reply.user));
}

}  // namespace dorvo

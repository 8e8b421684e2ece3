#include "httpd/http_connection.h"

#include <algorithm>
#include <boost/asio/dispatch.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/write.hpp>

#include "httpd/client_address.h"
#include "httpd/http_head.h"
#include "httpd/http_text.h"

namespace dorvo {

namespace asio = boost::asio;
namespace beast = boost::beast;

namespace {

// What one read of a body may bring, and what must come within HttpLimits::stall.
constexpr size_t partBytes = size_t{32} * 1024;
// How far the memory for a body goes ahead of what has come.
constexpr uint64_t aheadBytes = uint64_t{1} << 20U;
constexpr std::string_view continueText = "HTTP/1.1 100 Continue\r\n\r\n";

}  // namespace

HttpConnection::HttpConnection(asio::ip::tcp::socket socket, const Shared& shared, uint64_t number)
    : place_{shared.open, number},
      shared_(shared),
      stream_(std::move(socket)),
      buffer_(2 * shared.limits.headBytes + partBytes),
      memory_(shared.memory),
      patience_(stream_.get_executor()),
      strangerUntil_(std::chrono::steady_clock::now() + shared.limits.stranger) {
    beast::error_code error;
    const auto endpoint = stream_.socket().remote_endpoint(error);
    if (!error) {
        peer_ = plainAddress(endpoint.address());
    }
    stream_.socket().set_option(asio::ip::tcp::no_delay(true), error);
}

void HttpConnection::start() {
    asio::dispatch(stream_.get_executor(), guarded([this] { waitForRequest(); }));
}

void HttpConnection::turnAway() {
    const WebReply reply = shared_.service.refuse(503, "too many connections");
    const std::string text = replyHead(reply, 1, false) + reply.body;
    auto& socket = stream_.socket();
    beast::error_code ignored;
    socket.non_blocking(true, ignored);
    socket.write_some(asio::buffer(text), ignored);
    socket.shutdown(asio::socket_base::shutdown_both, ignored);
}

void HttpConnection::finish() {
    asio::post(stream_.get_executor(), guarded([this] {
                   finishing_ = true;
                   if (idle_ || (poll_ && !poll_->work)) {
                       close();
                   }
               }));
}

void HttpConnection::abort() {
    asio::post(stream_.get_executor(), guarded([this] { close(); }));
}

void HttpConnection::failed(const char* why) noexcept {
    try {
        shared_.log(client_ + " " + method_ + " " + target_ + " failed: " + why);
    } catch (const std::exception&) {
        // Memory is short, most likely: the connection ends without a word.
    }
    close();
}

void HttpConnection::failedAtWork(const char* why) noexcept {
    try {
        asio::post(stream_.get_executor(),
                   guarded([this, text = std::string(why)] { failed(text.c_str()); }));
    } catch (const std::exception&) {
        // Nothing of it is under way then, and it ends with this call.
    }
}

void HttpConnection::receive(void (HttpConnection::*then)()) {
    const size_t room =
        then == &HttpConnection::readBody ? body_.wanted(partBytes) : shared_.limits.headBytes;
    stream_.async_read_some(buffer_.prepare(room),
                            guarded([this, then](beast::error_code error, size_t bytes) {
                                if (error) {
                                    close();
                                    return;
                                }
                                buffer_.commit(bytes);
                                (this->*then)();
                            }));
}

std::string_view HttpConnection::received() const {
    return {static_cast<const char*>(buffer_.cdata().data()), buffer_.size()};
}

void HttpConnection::waitForRequest() {
    if (finishing_) {
        close();
        return;
    }
    idle_ = true;
    if (buffer_.size() != 0) {
        beginRequest();
        return;
    }
    waitAtMost(shared_.limits.idle);
    receive(&HttpConnection::beginRequest);
}

void HttpConnection::beginRequest() {
    idle_ = false;
    begin_ = std::chrono::steady_clock::now();
    request_ = {};
    refusal_.reset();
    body_ = HttpBody();
    bodyBytes_ = 0;
    timedBytes_ = 0;
    client_ = peer_;
    target_ = "-";
    method_ = "-";
    minor_ = 1;
    waitAtMost(shared_.limits.head);
    readHead();
}

void HttpConnection::readHead() {
    const std::string_view bytes = received();
    const size_t length = headLength(bytes);
    if (length == 0 && bytes.size() <= shared_.limits.headBytes) {
        receive(&HttpConnection::readHead);
        return;
    }
    if (length == 0 || length > shared_.limits.headBytes) {
        answerAndEnd(413, "the request's head is too large");
        return;
    }
    HttpHead head;
    if (const char* why = parseHead(bytes.substr(0, length), head)) {
        answerAndEnd(400, why);
        return;
    }
    onHead(head);
    buffer_.consume(length);
    // Of a body in chunks only the end shows how long it is.
    const uint64_t most = head.chunked ? SIZE_MAX : head.length;
    if (!head.chunked && head.length > shared_.limits.discardedBytes) {
        answerAndEnd(413, "the request's body is too large");
    } else if (!refusal_ &&
               std::min<uint64_t>(most, admission_.bodyLimit) > admission_.judgedBytes) {
        judgeLargeBody();
    } else {
        takeBody();
    }
}

void HttpConnection::onHead(const HttpHead& head) {
    method_ = head.method;
    target_ = head.target;
    minor_ = head.minor;
    keepAlive_ = head.keepAlive;
    expectsContinue_ = head.expectsContinue;
    body_ = head.chunked ? HttpBody::chunked() : HttpBody(head.length);
    request_.method = method_;
    request_.path = head.path;
    request_.cookie = head.field("Cookie");
    request_.contentType = head.field("Content-Type");
    for (const HttpField& field : head.fields) {
        request_.fields.emplace_back(field.name, field.value);
    }
    findClient(head);
    request_.peer = client_;
    request_.mark = mark_;
    request_.known = known_ && !request_.cookie.empty() && request_.cookie == knownCookie_;
    cookie_ = request_.cookie;
    admission_ = shared_.service.admit(request_);
    refusal_ = std::move(admission_.refusal);
    setKnown(admission_.known);
    if (!head.chunked && head.length > admission_.bodyLimit && !refusal_) {
        refusal_ = shared_.service.refuse(413, "the request's body is too large");
    }
}

void HttpConnection::findClient(const HttpHead& head) {
    if (!shared_.limits.trustedProxies.empty()) {
        findForwarded(head);
    }
    const auto& many = shared_.limits.manyBehind;
    const bool isMany = std::find(many.begin(), many.end(), client_) != many.end();
    memory_.setClient(isMany ? std::string() : clientNetwork(client_));
}

void HttpConnection::findForwarded(const HttpHead& head) {
    const auto joined = [&head](std::string_view name) {
        std::string values;
        for (const HttpField& field : head.fields) {
            if (equalNoCase(field.name, name)) {
                values.append(values.empty() ? "" : ",").append(field.value);
            }
        }
        return values;
    };
    client_ = forwardedClient(peer_, shared_.limits.trustedProxies, joined("Forwarded"),
                              joined("X-Forwarded-For"));
}

void HttpConnection::setKnown(bool known) {
    if (known_ && !known) {
        strangerUntil_ = std::chrono::steady_clock::now() + shared_.limits.stranger;
    }
    known_ = known;
    if (known) {
        knownCookie_ = cookie_;
    }
    using Standing = OpenConnections::Standing;
    setStanding(known ? Standing::known : awaited_ ? Standing::served : Standing::stranger);
}

void HttpConnection::setStanding(OpenConnections::Standing standing) {
    if (std::exchange(standing_, standing) != standing) {
        shared_.open.setStanding(place_.number, standing);
    }
}

void HttpConnection::waitAtMost(std::chrono::milliseconds time) {
    auto end = std::chrono::steady_clock::now() + time;
    if (!known_ && shared_.limits.stranger.count() != 0) {
        end = std::min(end, strangerUntil_);
    }
    stream_.expires_at(end);
}

void HttpConnection::judgeLargeBody() {
    stream_.expires_never();
    asio::post(shared_.workers, guardedWork([this] {
                   auto refusal = shared_.service.judgeLargeBody(request_);
                   asio::post(stream_.get_executor(),
                              guarded([this, refusal = std::move(refusal)]() mutable {
                                  refusal_ = std::move(refusal);
                                  setKnown(!refusal_);
                                  takeBody();
                              }));
               }));
}

void HttpConnection::takeBody() {
    stream_.expires_after(shared_.limits.stall);
    if (!expectsContinue_ || body_.done()) {
        readBody();
        return;
    }
    asio::async_write(stream_, asio::buffer(continueText.data(), continueText.size()),
                      guarded([this](beast::error_code error, size_t) {
                          if (error) {
                              close();
                          } else {
                              readBody();
                          }
                      }));
}

void HttpConnection::readBody() {
    std::string_view bytes = received();
    while (!bytes.empty() && !body_.done() && !body_.malformed()) {
        onPiece(body_.take(bytes));
    }
    buffer_.consume(buffer_.size() - bytes.size());
    if (body_.done()) {
        dispatch();
    } else if (body_.malformed()) {
        answerAndEnd(400, "the request's body is malformed");
    } else if (bodyBytes_ > shared_.limits.discardedBytes) {
        answerAndEnd(413, "the request's body is too large");
    } else {
        if (bodyBytes_ - timedBytes_ >= partBytes) {
            timedBytes_ = bodyBytes_;
            stream_.expires_after(shared_.limits.stall);
        }
        receive(&HttpConnection::readBody);
    }
}

void HttpConnection::onPiece(std::string_view piece) {
    bodyBytes_ += piece.size();
    if (!refusal_ && bodyBytes_ > admission_.bodyLimit) {
        refusal_ = shared_.service.refuse(413, "the request's body is too large");
        request_.body = {};
    }
    if (!refusal_ && growBody(request_.body.size() + piece.size())) {
        request_.body.append(piece);
    }
}

// In steps: what is announced and does not come takes nothing from others.
bool HttpConnection::growBody(uint64_t bytes) {
    if (bytes > shared_.limits.smallBytes && bytes > memory_.taken()) {
        const uint64_t step = std::max(bytes, 2 * uint64_t{memory_.taken()});
        const uint64_t whole = bytes + body_.announced();
        const uint64_t room =
            body_.isChunked() ? step : std::min(whole, std::max(step, aheadBytes));
        if (!memory_.raise(room)) {
            refuseForMemory();
            return false;
        }
        request_.body.reserve(room);
    }
    return true;
}

void HttpConnection::refuseForMemory() {
    request_.body = {};
    memory_.giveBack();
    refusal_ = shared_.service.refuse(503, "too many requests at once");
}

}  // namespace dorvo

// One client's connection: request after request until either side has enough.
//
// It lives as long as an operation of it is under way. Everything runs on the connection's strand
// but the service's calls, during which the connection waits. While a long poll waits, or a watched
// call runs, it reads on, to notice that the client has gone; what it reads is the beginning of the
// next request. What a handler throws ends the connection and nothing else.
#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "httpd/http_body.h"
#include "httpd/http_head.h"
#include "httpd/http_limits.h"
#include "httpd/http_service.h"
#include "httpd/memory_budget.h"
#include "httpd/open_connections.h"

namespace dorvo {

class HttpConnection : public OpenConnections::Connection,
                       public std::enable_shared_from_this<HttpConnection> {
public:
    // What the connections of a server share; outlives them.
    struct Shared {
        HttpService& service;
        HttpLimits limits;
        HttpLog log;
        boost::asio::io_context& workers;
        OpenConnections& open;
        MemoryBudget& memory;
    };

    HttpConnection(boost::asio::ip::tcp::socket socket, const Shared& shared, uint64_t number);
    ~HttpConnection() override = default;
    HttpConnection(const HttpConnection&) = delete;
    HttpConnection& operator=(const HttpConnection&) = delete;

    // The client's address, without its port.
    [[nodiscard]] const std::string& peer() const { return peer_; }

    void start();
    // Instead of start(): says that there are too many, and ends.
    void turnAway();
    // Ends the connection after the request in progress, at once when there is none. Any thread.
    void finish() override;
    // Ends it at once. Any thread.
    void abort() override;

private:
    // An operation's handler: keeps the connection, and ends it when something is thrown.
    template <class Call>
    class Guarded {
    public:
        Guarded(std::shared_ptr<HttpConnection> self, Call call)
            : self_(std::move(self)), call_(std::move(call)) {}
        void operator()() { run(); }
        void operator()(boost::beast::error_code error) { run(error); }
        void operator()(boost::beast::error_code error, size_t bytes) { run(error, bytes); }

    private:
        template <class... Results>
        void run(Results... results) {
            try {
                call_(results...);
            } catch (const std::exception& error) {
                self_->failed(error.what());
            }
        }

        std::shared_ptr<HttpConnection> self_;
        Call call_;
    };
    template <class Call>
    Guarded<Call> guarded(Call call) {
        return {shared_from_this(), std::move(call)};
    }
    void failed(const char* why) noexcept;
    // The same for what runs on a worker.
    template <class Call>
    auto guardedWork(Call call) {
        return [self = shared_from_this(), call = std::move(call)]() mutable {
            try {
                call();
            } catch (const std::exception& error) {
                self->failedAtWork(error.what());
            }
        };
    }
    void failedAtWork(const char* why) noexcept;
    // Reads what has come, then goes on there.
    void receive(void (HttpConnection::*then)());
    [[nodiscard]] std::string_view received() const;

    void waitForRequest();
    void beginRequest();
    void readHead();
    void onHead(const HttpHead& head);
    void findClient(const HttpHead& head);
    void findForwarded(const HttpHead& head);
    void judgeLargeBody();
    void takeBody();
    void readBody();
    void onPiece(std::string_view piece);
    // Whether there is memory for that much of the body; else it is refused.
    bool growBody(uint64_t bytes);
    void refuseForMemory();

    void setKnown(bool known);
    void setStanding(OpenConnections::Standing standing);
    // The next operations, together, have that long, and a stranger no longer than he has.
    void waitAtMost(std::chrono::milliseconds time);

    void dispatch();
    void callService(const WebRequest& request, uint64_t turn);
    void onPoll(uint64_t turn, const LongPoll& poll);
    void onReply(uint64_t turn, WebReply reply);
    void watch();
    void onWatched(boost::beast::error_code error);
    void withdraw();
    void answer(WebReply reply);
    void answerAndEnd(int status, const char* why);
    void write(WebReply reply);
    void writeSome();
    void onWritten();
    void linger();
    void close();
    void logRequest(const WebReply& reply) const;

    // Left last: who waits until all have left may destroy what the other members are made of,
    // while the last owner of the connection is a thread of the service's.
    struct Place {
        OpenConnections& open;
        const uint64_t number;
        ~Place() { open.leave(number); }
    };

    const Place place_;
    const Shared& shared_;
    boost::beast::tcp_stream stream_;
    boost::beast::flat_buffer buffer_;
    WebRequest request_;
    std::optional<WebReply> refusal_;  // decided before the body is read; the body is dropped
    Admission admission_;
    // Of the request in progress.
    std::string method_;
    std::string target_;
    unsigned minor_ = 1;
    bool keepAlive_ = true;
    bool expectsContinue_ = false;
    std::chrono::steady_clock::time_point begin_;
    HttpBody body_;
    uint64_t bodyBytes_ = 0;
    uint64_t timedBytes_ = 0;     // of them, when the time for the next part began
    MemoryBudget::Share memory_;  // of body and answer
    std::string cookie_;
    // The answer on its way out.
    std::string replyHead_;
    std::string replyBody_;
    size_t written_ = 0;
    bool endsAfterReply_ = false;

    std::optional<LongPoll> poll_;             // while it waits for its answer
    boost::asio::steady_timer patience_;       // of poll_
    bool watching_ = false;                    // a read is under way beside the poll
    std::optional<WebReply> reply_;            // of a poll, until that read has ended
    std::shared_ptr<std::atomic<bool>> gone_;  // of a watched request that is awaited
    bool awaited_ = false;  // the service has the request and its answer isn't there yet
    uint64_t turn_ = 0;     // counts the requests that went to the service
    int64_t mark_ = -1;
    size_t lingered_ = 0;
    std::string peer_ = "-";
    std::string client_ = "-";  // who asks, by the request's head
    bool idle_ = true;
    bool known_ = false;
    std::string knownCookie_;  // which made it known
    std::chrono::steady_clock::time_point strangerUntil_;
    OpenConnections::Standing standing_ = OpenConnections::Standing::stranger;
    bool finishing_ = false;
    bool closed_ = false;
};

}  // namespace dorvo

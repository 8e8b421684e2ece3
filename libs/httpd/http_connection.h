// One client's connection: request after request until either side has enough.
//
// It lives as long as an operation of it is under way. Everything runs on the connection's strand
// but the service's calls, during which the connection waits. While a long poll waits, or a watched
// call runs, it reads on, to notice that the client has gone; what it reads is the beginning of the
// next request.
#pragma once

#include <array>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/thread_pool.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/http/buffer_body.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/serializer.hpp>
#include <boost/beast/http/string_body.hpp>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "httpd/http_server.h"
#include "httpd/http_service.h"
#include "httpd/open_connections.h"

namespace dorvo {

class HttpConnection : public std::enable_shared_from_this<HttpConnection> {
public:
    // What the connections of a server share; outlives them.
    struct Shared {
        HttpService& service;
        HttpLimits limits;
        HttpServer::Log log;
        boost::asio::thread_pool& workers;
        OpenConnections& open;
    };

    HttpConnection(boost::asio::ip::tcp::socket socket, const Shared& shared, uint64_t number);
    ~HttpConnection();
    HttpConnection(const HttpConnection&) = delete;
    HttpConnection& operator=(const HttpConnection&) = delete;

    void start();
    // Instead of start(): says that there are too many, and ends.
    void turnAway();
    // Ends the connection after the request in progress, at once when there is none. Any thread.
    void finish();
    // Ends it at once. Any thread.
    void abort();

private:
    void waitForRequest();
    void readHead();
    void onHead();
    void admit();
    void judgeLargeBody();
    void takeBody();
    void readBody();
    void onBodyPart(size_t room);
    void dispatch();
    void onPoll(uint64_t turn, const LongPoll& poll);
    void onReply(uint64_t turn, WebReply reply);
    void watch();
    void onWatched(boost::beast::error_code error);
    void withdraw();
    void answer(WebReply reply);
    void answerAndEnd(int status, const char* why);
    void onHeadError(boost::beast::error_code error);
    void write(bool keepAlive);
    void writeSome(bool keepAlive);
    void onWritten(bool keepAlive);
    void linger();
    void close();
    void logRequest(const WebReply& reply) const;

    const Shared& shared_;
    const uint64_t number_;
    boost::beast::tcp_stream stream_;
    boost::beast::flat_buffer buffer_;
    std::optional<boost::beast::http::request_parser<boost::beast::http::buffer_body>> parser_;
    std::optional<boost::beast::http::response<boost::beast::http::string_body>> response_;
    std::optional<boost::beast::http::response_serializer<boost::beast::http::string_body>>
        serializer_;
    std::vector<char> part_;
    WebRequest request_;
    std::optional<WebReply> refusal_;  // decided before the body is read; the body is dropped
    Admission admission_;
    std::optional<LongPoll> poll_;             // while it waits for its answer
    boost::asio::steady_timer patience_;       // of poll_
    bool watching_ = false;                    // a read is under way beside the poll
    std::optional<WebReply> reply_;            // of a poll, until that read has ended
    std::shared_ptr<std::atomic<bool>> gone_;  // of a watched request that is awaited
    bool awaited_ = false;  // the service has the request and its answer isn't there yet
    uint64_t turn_ = 0;     // counts the requests that went to the service
    int64_t mark_ = -1;
    size_t bodyBytes_ = 0;
    size_t lingered_ = 0;
    std::chrono::steady_clock::time_point begin_;
    std::string peer_;
    std::string target_;
    std::string method_;
    bool idle_ = true;
    bool known_ = false;
    bool finishing_ = false;
};

}  // namespace dorvo

// A plain HTTP client for tests: one connection, and control over every byte that goes out.
#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/json.hpp>
#include <cstdint>
#include <string>
#include <string_view>

namespace dorvo {

struct Answer {
    int status = 0;  // 0: the server closed the connection instead
    std::string head;
    std::string body;

    [[nodiscard]] std::string header(std::string_view name) const;
    // Where Boost.JSON is linked.
    [[nodiscard]] boost::json::object json() const { return boost::json::parse(body).as_object(); }
};

class Client {
public:
    // From that address, where one is given.
    explicit Client(uint16_t port, const char* from = nullptr);

    // The text of a request; `fields` are more of its head, each with its line end.
    static std::string request(std::string_view path, std::string_view body,
                               std::string_view cookie = {}, std::string_view fields = {});
    Answer post(std::string_view path, std::string_view body, std::string_view cookie = {},
                std::string_view contentType = "application/json");

    // What the server does not take is dropped: receive() tells.
    void send(std::string_view bytes);
    // No more bytes will come from this side.
    void shutdownSend();
    Answer receive();
    // Without a body, whatever length the head names.
    Answer receiveHead();
    // Waits until the server closes; what it sent before is dropped.
    void waitForClose();

private:
    // False at the end of the stream.
    bool receiveMore();

    boost::asio::io_context io_;
    boost::asio::ip::tcp::socket socket_{io_};
    std::string received_;
};

}  // namespace dorvo

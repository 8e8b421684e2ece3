#include "httpd/testing/client.h"

#include <array>
#include <boost/asio/write.hpp>

namespace dorvo {

namespace asio = boost::asio;

std::string Answer::header(std::string_view name) const {
    const size_t at = head.find("\r\n" + std::string(name) + ": ");
    if (at == std::string::npos) {
        return {};
    }
    const size_t begin = at + 4 + name.size();
    return head.substr(begin, head.find("\r\n", begin) - begin);
}

Client::Client(uint16_t port, const char* from) {
    if (from != nullptr) {
        socket_.open(asio::ip::tcp::v4());
        socket_.bind({asio::ip::make_address(from), 0});
    }
    socket_.connect({asio::ip::address_v4::loopback(), port});
}

std::string Client::request(std::string_view path, std::string_view body, std::string_view cookie,
                            std::string_view fields) {
    std::string text = "POST " + std::string(path) + " HTTP/1.1\r\nHost: test\r\n";
    text.append(fields);
    if (!cookie.empty()) {
        text += "Cookie: " + std::string(cookie) + "\r\n";
    }
    text += "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n";
    return text.append(body);
}

Answer Client::post(std::string_view path, std::string_view body, std::string_view cookie,
                    std::string_view contentType) {
    send(request(path, body, cookie, "Content-Type: " + std::string(contentType) + "\r\n"));
    return receive();
}

void Client::send(std::string_view bytes) {
    boost::system::error_code ignored;
    asio::write(socket_, asio::buffer(bytes.data(), bytes.size()), ignored);
}

void Client::shutdownSend() {
    boost::system::error_code ignored;
    socket_.shutdown(asio::socket_base::shutdown_send, ignored);
}

bool Client::receiveMore() {
    std::array<char, 16384> part{};
    boost::system::error_code error;
    received_.append(part.data(), socket_.read_some(asio::buffer(part), error));
    return !error;
}

Answer Client::receiveHead() {
    Answer answer;
    size_t end = 0;
    while ((end = received_.find("\r\n\r\n")) == std::string::npos) {
        if (!receiveMore()) {
            return {};
        }
    }
    answer.head = received_.substr(0, end + 2);
    received_.erase(0, end + 4);
    answer.status = std::stoi(answer.head.substr(9, 3));
    return answer;
}

Answer Client::receive() {
    Answer answer = receiveHead();
    const std::string length = answer.header("Content-Length");
    const size_t bytes = length.empty() ? 0 : std::stoul(length);
    while (received_.size() < bytes) {
        if (!receiveMore()) {
            return {};
        }
    }
    answer.body = received_.substr(0, bytes);
    received_.erase(0, bytes);
    return answer;
}

void Client::waitForClose() {
    while (receiveMore()) {
    }
}

}  // namespace dorvo

#include "testing/client.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <array>
#include <stdexcept>

namespace dorvo {

std::string Answer::header(std::string_view name) const {
    const size_t at = head.find("\r\n" + std::string(name) + ": ");
    if (at == std::string::npos) {
        return {};
    }
    const size_t begin = at + 4 + name.size();
    return head.substr(begin, head.find("\r\n", begin) - begin);
}

boost::json::object Answer::json() const {
    return boost::json::parse(body).as_object();
}

Client::Client(uint16_t port) : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(socket_.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        throw std::runtime_error("cannot connect");
    }
}

Answer Client::post(std::string_view path, std::string_view body, std::string_view cookie,
                    std::string_view contentType) {
    std::string request = "POST " + std::string(path) + " HTTP/1.1\r\nHost: test\r\n";
    request += "Content-Type: " + std::string(contentType) + "\r\n";
    if (!cookie.empty()) {
        request += "Cookie: " + std::string(cookie) + "\r\n";
    }
    request += "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n";
    send(request + std::string(body));
    return receive();
}

void Client::send(std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t sent = ::send(socket_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent <= 0) {
            return;  // the server has closed; receive() tells
        }
        bytes.remove_prefix(static_cast<size_t>(sent));
    }
}

void Client::shutdownSend() {
    ::shutdown(socket_.get(), SHUT_WR);
}

bool Client::receiveMore() {
    std::array<char, 16384> part{};
    const ssize_t count = ::recv(socket_.get(), part.data(), part.size(), 0);
    if (count <= 0) {
        return false;
    }
    received_.append(part.data(), static_cast<size_t>(count));
    return true;
}

Answer Client::receive() {
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

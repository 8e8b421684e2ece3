// A plain HTTP client for tests: one connection, and control over every byte that goes out.
#pragma once

#include <boost/json.hpp>
#include <cstdint>
#include <string>
#include <string_view>

#include "file_descriptor.h"

namespace dorvo {

struct Answer {
    int status = 0;  // 0: the server closed the connection instead
    std::string head;
    std::string body;

    [[nodiscard]] std::string header(std::string_view name) const;
    [[nodiscard]] boost::json::object json() const;
};

class Client {
public:
    explicit Client(uint16_t port);

    Answer post(std::string_view path, std::string_view body, std::string_view cookie = {},
                std::string_view contentType = "application/json");

    void send(std::string_view bytes);
    // No more bytes will come from this side.
    void shutdownSend();
    Answer receive();
    // Waits until the server closes; what it sent before is dropped.
    void waitForClose();

private:
    // False at the end of the stream.
    bool receiveMore();

    FileDescriptor socket_;
    std::string received_;
};

}  // namespace dorvo

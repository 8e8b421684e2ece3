// A server on a loopback port that plays a script of the test, a thread a connection.
//
// The script is called for each connection with its number, counted from 0; when it returns, the
// connection is closed. What it received is kept. Destroying the server ends all scripts. A server
// that is made deaf has its port and refuses connections until it is told to listen.
#pragma once

#include <winsock2.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "base/log.h"

namespace dorvo::test {

// One connection, as its script sees it.
class ScriptedPeer {
public:
    explicit ScriptedPeer(SOCKET socket) : socket_(socket) {
        const BOOL on = TRUE;  // pieces go out as they are sent
        setsockopt(socket_, IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&on),
                   sizeof(on));
    }

    // The next request, head and body as they came; empty when the client has closed.
    std::string request() {
        size_t end = 0;
        if (!more_until_line(0, end, "\r\n\r\n")) {
            return {};
        }
        size_t size = end + 4;
        const std::string head = pending_.substr(0, size);
        if (head.find("Transfer-Encoding: chunked") != std::string::npos) {
            for (uint64_t chunk = 1; chunk != 0;) {
                if (!more_until_line(size, end)) {
                    return {};
                }
                chunk = std::strtoull(pending_.c_str() + size, nullptr, 16);
                size = end + 2 + chunk + 2;
            }
        } else if (const size_t at = head.find("Content-Length: "); at != std::string::npos) {
            size += std::strtoull(head.c_str() + at + 16, nullptr, 10);
        }
        if (!more_until(size)) {
            return {};
        }
        std::string whole = pending_.substr(0, size);
        pending_.erase(0, size);
        return whole;
    }
    // Waits until the client closes.
    void drain() {
        while (more()) {
        }
    }
    // False when the client is gone.
    bool send(const std::string& text) {
        size_t sent = 0;
        while (sent < text.size()) {
            const int step =
                ::send(socket_, text.data() + sent, static_cast<int>(text.size() - sent), 0);
            if (step <= 0) {
                return false;
            }
            sent += static_cast<size_t>(step);
        }
        return true;
    }
    bool answer(const std::string& body, const std::string& status = "200 OK",
                const std::string& fields = "") {
        return send("HTTP/1.1 " + status + "\r\n" + fields +
                    "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body);
    }
    // Ends the connection from this side; what the client still sends is lost.
    void close() { shutdown(socket_, SD_SEND); }

private:
    bool more() {
        char bytes[65536];
        const int got = recv(socket_, bytes, sizeof(bytes), 0);
        pending_.append(bytes, static_cast<size_t>(std::max(got, 0)));
        return got > 0;
    }
    bool more_until_line(size_t from, size_t& end, const char* ending = "\r\n") {
        while ((end = pending_.find(ending, from)) == std::string::npos) {
            if (!more()) {
                return false;
            }
        }
        return true;
    }

    bool more_until(size_t size) {
        while (pending_.size() < size) {
            if (!more()) {
                return false;
            }
        }
        return true;
    }

    SOCKET socket_;
    std::string pending_;
};

class ScriptedServer {
public:
    using Script = std::function<void(ScriptedPeer&, int connection)>;

    explicit ScriptedServer(Script script, bool deaf = false) : script_(std::move(script)) {
        startAce();
        listener_ = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        static_cast<void>(
            ::bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof(address)));
        int size = sizeof(address);
        getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size);
        port_ = ntohs(address.sin_port);
        if (!deaf) {
            hear();
        }
    }
    ~ScriptedServer() {
        closesocket(listener_);
        if (acceptor_.joinable()) {
            acceptor_.join();
        }
        {
            std::lock_guard guard(lock_);
            for (SOCKET& open : sockets_) {
                if (open != INVALID_SOCKET) {
                    closesocket(std::exchange(open, INVALID_SOCKET));
                }
            }
        }
        for (std::thread& thread : threads_) {
            thread.join();
        }
    }
    ScriptedServer(const ScriptedServer&) = delete;
    ScriptedServer& operator=(const ScriptedServer&) = delete;

    void hear() {
        listen(listener_, 16);
        acceptor_ = std::thread([this] { accept_all(); });
    }

    uint16_t port() const { return port_; }
    int connections() const {
        std::lock_guard guard(lock_);
        return static_cast<int>(sockets_.size());
    }

private:
    void accept_all() {
        for (;;) {
            const SOCKET accepted = accept(listener_, nullptr, nullptr);
            if (accepted == INVALID_SOCKET) {
                return;
            }
            std::lock_guard guard(lock_);
            const size_t number = sockets_.size();
            sockets_.push_back(accepted);
            threads_.emplace_back([this, accepted, number] {
                ScriptedPeer peer(accepted);
                script_(peer, static_cast<int>(number));
                std::lock_guard inner(lock_);
                if (sockets_[number] != INVALID_SOCKET) {
                    closesocket(std::exchange(sockets_[number], INVALID_SOCKET));
                }
            });
        }
    }

    Script script_;
    SOCKET listener_ = INVALID_SOCKET;
    uint16_t port_ = 0;
    std::thread acceptor_;
    std::vector<std::thread> threads_;
    mutable std::mutex lock_;      // guards sockets_
    std::vector<SOCKET> sockets_;  // INVALID_SOCKET once the connection has ended
};

}  // namespace dorvo::test

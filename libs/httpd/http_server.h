// The HTTP/1.1 server: takes connections, reads requests within limits, and answers them.
//
// Connections are served by I/O threads, which never block; the service's calls run on workers, and
// a request that waits for something holds neither. What is too large, too slow or malformed is
// refused without disturbing others. A request's body is always read before the request is refused,
// up to a bound.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "httpd/http_limits.h"

namespace dorvo {

class HttpService;

struct HttpThreads {
    size_t io = 1;
    size_t workers = 4;
};

class HttpServer {
public:
    // Begins to serve; throws std::exception when it cannot listen there, or the system refuses it
    // a thread. Port 0: any free one. Borrows the service. The log is called from any thread.
    HttpServer(HttpService& service, const std::string& address, uint16_t port,
               const HttpLimits& limits, const HttpThreads& threads, HttpLog log);
    // stop()
    ~HttpServer();
    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;

    // Where it listens, such as "127.0.0.1:8080".
    [[nodiscard]] std::string endpoint() const;
    [[nodiscard]] uint16_t port() const;

    // Takes no more requests, lets those in progress finish, within bounds, and joins. Connections
    // of long polls end at once, without an answer. Idempotent.
    void stop();

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace dorvo

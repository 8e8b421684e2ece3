#include "httpd/http_server.h"

#include <algorithm>
#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/strand.hpp>
#include <condition_variable>
#include <map>
#include <mutex>
#include <thread>

#include "httpd/http_connection.h"
#include "httpd/http_service.h"

namespace dorvo {

namespace asio = boost::asio;
using asio::ip::tcp;

namespace {

// Windows would let any program that asks to reuse the address take requests, and what they carry,
// out of an acceptor that had asked for it too. Elsewhere to reuse it only means not to wait until
// the connections of a server before this one are forgotten.
void claimAddress(tcp::acceptor& acceptor) {
#ifdef _WIN32
    constexpr DWORD yes = 1;
    if (setsockopt(acceptor.native_handle(), SOL_SOCKET, SO_EXCLUSIVEADDRUSE,
                   reinterpret_cast<const char*>(&yes), sizeof(yes)) != 0) {
        throw boost::system::system_error(WSAGetLastError(), boost::system::system_category());
    }
#else
    acceptor.set_option(asio::socket_base::reuse_address(true));
#endif
}

}  // namespace

struct HttpServer::Impl {
    Impl(HttpService& service, const std::string& address, uint16_t port, const HttpLimits& limits,
         const HttpThreads& counts, Log log)
        : workers(counts.workers),
          acceptor(asio::make_strand(io)),
          retry(acceptor.get_executor()),
          shared{service,
                 limits,
                 std::move(log),
                 workers,
                 [this](uint64_t number, bool known) { knows(number, known); },
                 [this](uint64_t number) { ended(number); }} {
        const tcp::endpoint endpoint(asio::ip::make_address(address), port);
        acceptor.open(endpoint.protocol());
        claimAddress(acceptor);
        acceptor.bind(endpoint);
        acceptor.listen();
        local = acceptor.local_endpoint();
        accept();
        for (size_t i = 0; i < counts.io; ++i) {
            threads.emplace_back([this] { io.run(); });
        }
    }

    void accept() {
        acceptor.async_accept(asio::make_strand(io),
                              [this](boost::system::error_code error, tcp::socket socket) {
                                  onAccept(error, std::move(socket));
                              });
    }

    void onAccept(boost::system::error_code error, tcp::socket socket) {
        // Closed by stop(), perhaps while this connection was on its way here.
        if (!acceptor.is_open()) {
            return;
        }
        if (error) {
            // Out of descriptors, most likely: connections that end will give some back.
            retry.expires_after(std::chrono::milliseconds(100));
            retry.async_wait([this](boost::system::error_code stopped) {
                if (!stopped) {
                    accept();
                }
            });
            return;
        }
        admit(std::move(socket));
        accept();
    }

    void admit(tcp::socket socket) {
        std::shared_ptr<HttpConnection> ending;  // goes after the lock
        std::unique_lock lock(mutex);
        if (stopping) {
            return;
        }
        if (connections.size() >= shared.limits.connections) {
            const auto stranger =
                std::find_if(connections.begin(), connections.end(),
                             [](const auto& entry) { return !entry.second.known; });
            if (!shared.limits.makeRoom || stranger == connections.end()) {
                lock.unlock();
                turnAway(std::move(socket));
                return;
            }
            ending = stranger->second.connection.lock();
            connections.erase(stranger);
        }
        const uint64_t number = ++lastNumber;
        const auto connection = std::make_shared<HttpConnection>(std::move(socket), shared, number);
        connections[number].connection = connection;
        lock.unlock();
        if (ending) {
            ending->abort();
        }
        connection->start();
    }

    void turnAway(tcp::socket socket) const {
        const WebReply reply = shared.service.refuse(503, "too many connections");
        const std::string text =
            "HTTP/1.1 503 Service Unavailable\r\nContent-Type: " + reply.contentType +
            "\r\nConnection: close\r\nContent-Length: " + std::to_string(reply.body.size()) +
            "\r\n\r\n" + reply.body;
        boost::system::error_code ignored;
        socket.non_blocking(true, ignored);
        socket.write_some(asio::buffer(text), ignored);
        socket.shutdown(asio::socket_base::shutdown_both, ignored);
    }

    void knows(uint64_t number, bool known) {
        const std::lock_guard lock(mutex);
        if (const auto entry = connections.find(number); entry != connections.end()) {
            entry->second.known = known;
        }
    }

    void ended(uint64_t number) {
        const std::lock_guard lock(mutex);
        connections.erase(number);
        allEnded.notify_all();
    }

    std::vector<std::shared_ptr<HttpConnection>> live() {
        std::vector<std::shared_ptr<HttpConnection>> list;
        const std::lock_guard lock(mutex);
        for (const auto& [number, entry] : connections) {
            if (auto alive = entry.connection.lock()) {
                list.push_back(std::move(alive));
            }
        }
        return list;
    }

    void stop() {
        {
            const std::lock_guard lock(mutex);
            if (stopping) {
                return;
            }
            stopping = true;
        }
        asio::post(acceptor.get_executor(), [this] {
            boost::system::error_code ignored;
            acceptor.close(ignored);
            retry.cancel();
        });
        for (const auto& connection : live()) {
            connection->finish();
        }
        {
            std::unique_lock lock(mutex);
            allEnded.wait_for(lock, shared.limits.stopPatience,
                              [this] { return connections.empty(); });
        }
        for (const auto& connection : live()) {
            connection->abort();
        }
        // A call of the service is finished even so: what it does must not be torn.
        workers.join();
        work.reset();
        for (std::thread& thread : threads) {
            thread.join();
        }
    }

    asio::io_context io;
    asio::executor_work_guard<asio::io_context::executor_type> work{io.get_executor()};
    asio::thread_pool workers;
    tcp::acceptor acceptor;
    asio::steady_timer retry;
    tcp::endpoint local;
    HttpConnection::Shared shared;
    struct Entry {
        std::weak_ptr<HttpConnection> connection;
        bool known = false;
    };
    std::mutex mutex;  // guards connections, lastNumber and stopping
    std::condition_variable allEnded;
    std::map<uint64_t, Entry> connections;  // the oldest first
    uint64_t lastNumber = 0;
    bool stopping = false;
    std::vector<std::thread> threads;
};

HttpServer::HttpServer(HttpService& service, const std::string& address, uint16_t port,
                       const HttpLimits& limits, const HttpThreads& threads, Log log)
    : impl_(std::make_unique<Impl>(service, address, port, limits, threads, std::move(log))) {}

HttpServer::~HttpServer() {
    stop();
}

std::string HttpServer::endpoint() const {
    const std::string address = impl_->local.address().to_string();
    return (impl_->local.address().is_v6() ? "[" + address + "]" : address) + ":" +
           std::to_string(impl_->local.port());
}

uint16_t HttpServer::port() const {
    return impl_->local.port();
}

void HttpServer::stop() {
    impl_->stop();
}

}  // namespace dorvo

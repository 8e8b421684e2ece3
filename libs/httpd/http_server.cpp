#include "httpd/http_server.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/strand.hpp>
#include <condition_variable>
#include <map>
#include <mutex>
#include <thread>

#include "httpd/http_connection.h"

namespace dorvo {

namespace asio = boost::asio;
using asio::ip::tcp;

namespace {

constexpr std::string_view busyText =
    "HTTP/1.1 503 Service Unavailable\r\nContent-Type: application/json\r\n"
    "Connection: close\r\nContent-Length: 32\r\n\r\n{\"error\":\"too many connections\"}";

}  // namespace

struct HttpServer::Impl {
    Impl(HttpService& service, const std::string& address, uint16_t port, const HttpLimits& limits,
         const HttpThreads& counts, Log log)
        : workers(counts.workers),
          acceptor(asio::make_strand(io)),
          retry(acceptor.get_executor()),
          shared{service, limits, std::move(log), workers,
                 [this](HttpConnection* connection) { ended(connection); }} {
        const tcp::endpoint endpoint(asio::ip::make_address(address), port);
        acceptor.open(endpoint.protocol());
        acceptor.set_option(asio::socket_base::reuse_address(true));
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
        if (error == asio::error::operation_aborted) {
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
        std::unique_lock lock(mutex);
        if (stopping) {
            return;
        }
        if (connections.size() >= shared.limits.connections) {
            lock.unlock();
            turnAway(std::move(socket));
            return;
        }
        const auto connection = std::make_shared<HttpConnection>(std::move(socket), shared);
        connections.emplace(connection.get(), connection);
        lock.unlock();
        connection->start();
    }

    static void turnAway(tcp::socket socket) {
        boost::system::error_code ignored;
        socket.non_blocking(true, ignored);
        socket.write_some(asio::buffer(busyText.data(), busyText.size()), ignored);
        socket.shutdown(asio::socket_base::shutdown_both, ignored);
    }

    void ended(HttpConnection* connection) {
        const std::lock_guard lock(mutex);
        connections.erase(connection);
        allEnded.notify_all();
    }

    std::vector<std::shared_ptr<HttpConnection>> live() {
        std::vector<std::shared_ptr<HttpConnection>> list;
        const std::lock_guard lock(mutex);
        for (const auto& [key, connection] : connections) {
            if (auto alive = connection.lock()) {
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
    std::mutex mutex;  // guards connections and stopping
    std::condition_variable allEnded;
    std::map<HttpConnection*, std::weak_ptr<HttpConnection>> connections;
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

#include "httpd/http_server.h"

#include <atomic>
#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/strand.hpp>
#include <thread>
#include <utility>
#include <vector>

#include "httpd/http_connection.h"
#include "httpd/open_connections.h"

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

// A queue of handlers and the threads that run them, once there is one.
class Crew {
public:
    explicit Crew(HttpLog log) : log_(std::move(log)) {}
    ~Crew() {
        // Not finished: more of the threads were refused.
        io_.stop();
        join();
    }
    Crew(const Crew&) = delete;
    Crew& operator=(const Crew&) = delete;

    [[nodiscard]] asio::io_context& io() { return io_; }

    // Throws std::system_error when the system refuses a thread; then no handler is to come.
    void start(size_t threads) {
        for (size_t i = 0; i < threads; ++i) {
            threads_.emplace_back([this] { serve(); });
        }
    }

    // Runs what has been handed to it, and what that hands to it, then joins.
    void finish() {
        work_.reset();
        join();
    }

    void complain(const std::exception& error) const noexcept {
        try {
            log_(std::string("a connection was lost: ") + error.what());
        } catch (const std::exception&) {
            // Memory is short, most likely.
        }
    }

private:
    // Nothing that a handler throws may take the thread, and with it the process.
    void serve() {
        for (;;) {
            try {
                io_.run();
                return;
            } catch (const std::exception& error) {
                complain(error);
            }
        }
    }

    void join() {
        for (std::thread& thread : std::exchange(threads_, {})) {
            thread.join();
        }
    }

    const HttpLog log_;
    asio::io_context io_;
    asio::executor_work_guard<asio::io_context::executor_type> work_{io_.get_executor()};
    std::vector<std::thread> threads_;
};

}  // namespace

struct HttpServer::Impl {
    Impl(HttpService& service, const std::string& address, uint16_t port, const HttpLimits& limits,
         const HttpThreads& counts, HttpLog log)
        : connections(limits),
          memory(limits.memoryBytes, limits.memoryOfClientBytes),
          serving(log),
          workers(log),
          shared{service, limits, std::move(log), workers.io(), connections, memory},
          acceptor(asio::make_strand(serving.io())),
          retry(acceptor.get_executor()) {
        const tcp::endpoint endpoint(asio::ip::make_address(address), port);
        acceptor.open(endpoint.protocol());
        claimAddress(acceptor);
        acceptor.bind(endpoint);
        acceptor.listen();
        local = acceptor.local_endpoint();
        workers.start(counts.workers);
        serving.start(counts.io);
        // Now that there is nobody missing: from here on there are connections.
        accept();
    }

    void accept() {
        acceptor.async_accept(asio::make_strand(serving.io()),
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
            onShortage();
            return;
        }
        accept();  // first: whatever becomes of this one, others come
        try {
            admit(std::move(socket));
        } catch (const std::exception& failure) {
            serving.complain(failure);
        }
    }

    // Out of descriptors, most likely, which shows also when nobody waits: only for somebody who
    // does another one gives way, and with it its descriptor.
    void onShortage() {
        acceptor.async_wait(tcp::acceptor::wait_read, [this](boost::system::error_code stopped) {
            if (stopped) {
                return;
            }
            connections.giveWay();
            retry.expires_after(std::chrono::milliseconds(20));
            retry.async_wait([this](boost::system::error_code cancelled) {
                if (!cancelled) {
                    accept();
                }
            });
        });
    }

    void admit(tcp::socket socket) {
        const uint64_t number = ++lastNumber;
        const auto connection = std::make_shared<HttpConnection>(std::move(socket), shared, number);
        if (connections.enter(number, connection->peer(), connection)) {
            connection->start();
        } else {
            connection->turnAway();
        }
    }

    void stop() {
        if (stopped.exchange(true)) {
            return;
        }
        connections.shut();
#ifndef __clang_analyzer__  // which takes the acceptor's executor for none
        asio::post(acceptor.get_executor(), [this] {
            boost::system::error_code ignored;
            acceptor.close(ignored);
            retry.cancel();
        });
#endif
        for (const auto& connection : connections.all()) {
            connection->finish();
        }
        connections.waitUntilEmpty(shared.limits.stopPatience);
        for (const auto& connection : connections.all()) {
            connection->abort();
        }
        // A call of the service is finished even so: what it does must not be torn. While a
        // connection lives it may hand on work, which nobody would take from a pool that has ended.
        connections.waitUntilEmpty();
        workers.finish();
        serving.finish();
    }

    // In this order: queues of handlers own connections, which tell `connections` that they go, and
    // whose sockets are of `serving`.
    OpenConnections connections;
    MemoryBudget memory;
    Crew serving;
    Crew workers;
    HttpConnection::Shared shared;
    tcp::acceptor acceptor;  // this and the next two: used on the acceptor's strand
    asio::steady_timer retry;
    uint64_t lastNumber = 0;
    tcp::endpoint local;
    std::atomic<bool> stopped = false;
};

HttpServer::HttpServer(HttpService& service, const std::string& address, uint16_t port,
                       const HttpLimits& limits, const HttpThreads& threads, HttpLog log)
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

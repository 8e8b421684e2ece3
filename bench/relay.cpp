// relay PORT RTT_MS MBIT: a network between a client and 127.0.0.1:PORT.
//
// Each direction is one line that all connections share: a piece of bytes takes its turn for as
// long as the rate needs for it (MBIT 0: no time), then half the round trip, and arrives with its
// last byte. What finds the line's queue full stays with its sender, as behind a router. A
// connection's first bytes wait one round trip more, for the handshake. Ends and resets take the
// same way as bytes. Nothing is lost, and senders do not begin slowly: a better network than any
// real one of that length.
//
// Prints "listening on 127.0.0.1:N". Answers each line of standard input with what has passed so
// far, a line of JSON, and ends with standard input. One thread; it sleeps until something is due.
#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <deque>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "relay_line.h"

namespace dorvo::bench {
namespace {

sockaddr_in loopback(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    return address;
}

class Relay {
public:
    Relay(std::uint16_t port, double rttMs, double mbit)
        : port_(port),
          rtt_(static_cast<Time>(rttMs * millisecond)),
          pieceBytes_(mbit > 0 ? 16384 : 65536),
          up_(rtt_ / 2, mbit > 0 ? 8000 / mbit : 0),
          down_(rtt_ / 2, mbit > 0 ? 8000 / mbit : 0) {
        sockaddr_in address = loopback(0);
        socklen_t size = sizeof address;
        auto* any = reinterpret_cast<sockaddr*>(&address);
        if (bind(listener_.get(), any, size) != 0 || listen(listener_.get(), SOMAXCONN) != 0 ||
            getsockname(listener_.get(), any, &size) != 0)
            fail("cannot listen");
        for (const int socket : {listener_.get(), timer_.get(), STDIN_FILENO})
            watch(socket, input);
        std::cout << "listening on 127.0.0.1:" << ntohs(address.sin_port) << std::endl;
    }

    void run() {
        while (!stopped_) {
            setTimer();
            std::array<epoll_event, 64> events;
            const int count = epoll_wait(poll_.get(), events.data(), events.size(), -1);
            for (int i = 0; i < count; ++i)
                handle(events.at(static_cast<std::size_t>(i)));
            deliver();
        }
    }

private:
    void handle(const epoll_event& event) {
        const int socket = event.data.fd;
        if (socket == listener_.get())
            acceptAll();
        else if (socket == STDIN_FILENO)
            tell();
        else if (socket == timer_.get())
            (void)!::read(socket, std::array<char, 8>().data(), 8);
        else if (const auto found = links_.find(socket); found != links_.end())
            serve(std::shared_ptr(found->second), socket, event.events);
    }

    // An error shows in the call that it was about to disturb.
    void serve(const std::shared_ptr<Link>& link, int socket, std::uint32_t events) {
        if ((events & ~input) != 0 && !link->writing(socket).arrived.empty())
            write(link, link->writing(socket));
        if (!link->over && (events & ~output) != 0 && link->reading(socket).readable)
            read(link, link->reading(socket));
    }

    void acceptAll() {
        int client = -1;
        while ((client = accept4(listener_.get(), nullptr, nullptr, SOCK_NONBLOCK)) >= 0) {
            const int server = ::socket(AF_INET, SOCK_STREAM, 0);
            auto link = std::make_shared<Link>(client, server);
            const sockaddr_in address = loopback(port_);
            // A listener on loopback takes it at once.
            if (connect(server, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
                reset(*link);
                continue;
            }
            const int on = 1;
            for (const int socket : {client, server}) {
                setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
                links_.emplace(socket, link);
            }
            ++connections_;
            opening_.emplace_back(now() + rtt_, link);
            setReadable(link->down, true);
        }
    }

    // Each line of standard input is answered with what has passed so far; its end is the relay's.
    void tell() {
        std::array<char, 256> lines;
        const ssize_t size = ::read(STDIN_FILENO, lines.data(), lines.size());
        stopped_ = size <= 0;
        for (ssize_t i = 0; i < size; ++i)
            if (lines.at(static_cast<std::size_t>(i)) == '\n')
                std::cout << R"({"up": )" << up_.total << R"(, "down": )" << down_.total
                          << R"(, "connections": )" << connections_ << R"(, "requests": )"
                          << requests_ << "}" << std::endl;
    }

    // One piece at a time, so that connections take turns.
    void read(const std::shared_ptr<Link>& link, Flow& flow) {
        Line& line = lineOf(flow);
        if (line.full(now()) || flow.underway >= windowBytes) {
            hold(line, link, flow);
            return;
        }
        std::string bytes(pieceBytes_, '\0');
        const ssize_t size = recv(flow.from, bytes.data(), bytes.size(), MSG_DONTWAIT);
        if (size < 0 && (errno == EAGAIN || errno == EINTR))
            return;
        if (size <= 0) {
            end(link, flow, size == 0 ? End::half : End::reset);
            return;
        }
        bytes.resize(static_cast<std::size_t>(size));
        if (&flow == &link->up)
            requests_ += link->requests.feed(bytes);
        flow.underway += bytes.size();
        line.put(link, flow, std::move(bytes), End::none);
    }

    void end(const std::shared_ptr<Link>& link, Flow& flow, End how) {
        setReadable(flow, false);
        if (!flow.ended || how == End::reset)
            lineOf(flow).put(link, flow, {}, how);
        flow.ended = true;
    }

    // A full line takes the sender back by itself, a full window when the receiver has taken some.
    void hold(Line& line, const std::shared_ptr<Link>& link, Flow& flow) {
        setReadable(flow, false);
        if (flow.underway < windowBytes)
            line.held.emplace_back(link, &flow);
    }

    void deliver() {
        const Time time = now();
        while (!opening_.empty() && opening_.front().first <= time) {
            const std::shared_ptr<Link> link = std::move(opening_.front().second);
            opening_.pop_front();
            if (!link->over)
                setReadable(link->up, true);
        }
        for (Line* line : {&up_, &down_}) {
            while (!line->pieces.empty() && line->pieces.front().due <= time) {
                Piece piece = std::move(line->pieces.front());
                line->pieces.pop_front();
                if (!piece.link->over)
                    arrive(std::move(piece));
            }
            if (line->roomAt() > time)
                continue;
            for (const auto& [link, flow] : std::exchange(line->held, {}))
                if (!link->over && !flow->ended)
                    setReadable(*flow, true);
        }
    }

    void arrive(Piece piece) {
        Flow& flow = *piece.flow;
        if (piece.end == End::reset) {
            reset(*piece.link);
            return;
        }
        flow.endArrived = flow.endArrived || piece.end == End::half;
        if (!piece.bytes.empty())
            flow.arrived.push_back(std::move(piece.bytes));
        write(piece.link, flow);
    }

    // What the receiver takes; the rest when it has room. A receiver that is gone resets the
    // sender.
    void write(const std::shared_ptr<Link>& link, Flow& flow) {
        while (!flow.arrived.empty()) {
            const std::string& first = flow.arrived.front();
            const ssize_t size = send(flow.to, first.data() + flow.taken, first.size() - flow.taken,
                                      MSG_DONTWAIT | MSG_NOSIGNAL);
            if (size < 0 && errno != EAGAIN && errno != EINTR) {
                flow.arrived.clear();
                end(link, link->writing(flow.from), End::reset);
                break;
            }
            if (size < 0)
                break;
            took(link, flow, static_cast<std::size_t>(size));
        }
        if (flow.arrived.empty() && flow.endArrived && !flow.closed) {
            flow.closed = true;
            shutdown(flow.to, SHUT_WR);
        }
        if (link->up.closed && link->down.closed)
            forget(*link);
        else
            update(*link, flow.to);
    }

    void took(const std::shared_ptr<Link>& link, Flow& flow, std::size_t size) {
        const bool wasFull = flow.underway >= windowBytes;
        flow.underway -= size;
        flow.taken += size;
        if (flow.taken == flow.arrived.front().size()) {
            flow.arrived.pop_front();
            flow.taken = 0;
        }
        if (wasFull && flow.underway < windowBytes && !flow.ended && !link->over)
            setReadable(flow, true);
    }

    // Both sides see a reset instead of an end.
    void reset(Link& link) {
        const linger now{1, 0};
        for (const int socket : {link.client.get(), link.server.get()})
            setsockopt(socket, SOL_SOCKET, SO_LINGER, &now, sizeof now);
        forget(link);
    }

    void forget(Link& link) {
        link.over = true;
        for (Descriptor* socket : {&link.client, &link.server}) {
            watch(socket->get(), 0);
            links_.erase(socket->get());
            socket->shut();
        }
    }

    void setReadable(Flow& flow, bool readable) {
        flow.readable = readable;
        update(*flow.link, flow.from);
    }

    void update(Link& link, int socket) {
        watch(socket, (link.reading(socket).readable ? input : 0U) |
                          (link.writing(socket).arrived.empty() ? 0U : output));
    }

    // Without events it is not watched at all: an error that nobody acts on would be told forever.
    void watch(int socket, std::uint32_t events) {
        epoll_event event{};
        event.events = events;
        event.data.fd = socket;
        std::uint32_t& watched = watched_[socket];
        if (watched != events)
            epoll_ctl(poll_.get(),
                      events == 0    ? EPOLL_CTL_DEL
                      : watched == 0 ? EPOLL_CTL_ADD
                                     : EPOLL_CTL_MOD,
                      socket, &event);
        watched = events;
    }

    void setTimer() {
        std::optional<Time> due;
        const auto sooner = [&](Time time) { due = std::min(due.value_or(time), time); };
        if (!opening_.empty())
            sooner(opening_.front().first);
        for (const Line* line : {&up_, &down_}) {
            if (!line->pieces.empty())
                sooner(line->pieces.front().due);
            if (!line->held.empty())
                sooner(line->roomAt());
        }
        const Time time = due ? std::max<Time>(*due, 1) : 0;  // 0: never
        if (time == std::exchange(timerSet_, time))
            return;
        const itimerspec spec{{}, {time / (1000 * millisecond), time % (1000 * millisecond)}};
        timerfd_settime(timer_.get(), TFD_TIMER_ABSTIME, &spec, nullptr);
    }

    Line& lineOf(const Flow& flow) { return &flow == &flow.link->up ? up_ : down_; }

    std::uint16_t port_;
    Time rtt_;
    std::size_t pieceBytes_;
    Line up_, down_;
    Descriptor listener_{::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0)};
    Descriptor timer_{timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK)};
    Descriptor poll_{epoll_create1(0)};
    std::unordered_map<int, std::uint32_t> watched_;
    std::unordered_map<int, std::shared_ptr<Link>> links_;  // by both sockets
    std::deque<std::pair<Time, std::shared_ptr<Link>>> opening_;
    Time timerSet_ = 0;
    std::uint64_t connections_ = 0, requests_ = 0;
    bool stopped_ = false;
};

}  // namespace
}  // namespace dorvo::bench

int main(int count, char** arguments) {
    std::vector<double> numbers;
    for (int i = 1; i < count; ++i) {
        char* end = nullptr;
        numbers.push_back(std::strtod(arguments[i], &end));
        if (end == arguments[i] || *end != '\0')
            numbers.clear();
    }
    if (numbers.size() != 3 || numbers[0] < 1 || numbers[0] > 65535 || numbers[1] < 0 ||
        numbers[1] > 60000 || numbers[2] < 0) {
        std::cerr << "usage: relay PORT RTT_MS MBIT\n";
        return 2;
    }
    try {
        dorvo::bench::Relay(static_cast<std::uint16_t>(numbers[0]), numbers[1], numbers[2]).run();
    } catch (const std::exception& error) {
        std::cerr << "relay: " << error.what() << '\n';
        return 1;
    }
}

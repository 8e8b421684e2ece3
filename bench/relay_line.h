// What the relay is made of: connections with their two ways, and the line that all of one way
// share.
//
// Belongs to one thread.
#pragma once

#include <sys/epoll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <ctime>
#include <deque>
#include <memory>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "request_counter.h"

namespace dorvo::bench {

using Time = std::int64_t;  // nanoseconds of the monotonic clock

constexpr std::uint32_t input = EPOLLIN, output = EPOLLOUT;
constexpr Time millisecond = 1'000'000;
constexpr Time queueTime = 20 * millisecond;  // what a line takes before it is its turn
constexpr std::size_t windowBytes = std::size_t{8} << 20U;  // of a connection, underway one way

[[noreturn]] inline void fail(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

inline Time now() {
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return Time{time.tv_sec} * 1000 * millisecond + time.tv_nsec;
}

class Descriptor {
public:
    explicit Descriptor(int number) : number_(number) {
        if (number < 0)
            fail("no descriptor");
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() { shut(); }

    int get() const { return number_; }
    void shut() {
        if (number_ >= 0)
            close(std::exchange(number_, -1));
    }

private:
    int number_;
};

struct Link;

// One way of a connection: bytes are read from one socket, lie on the line, arrive, and are written
// to the other.
struct Flow {
    Link* link;
    int from, to;
    std::size_t underway = 0;           // bytes read and not yet written
    std::deque<std::string> arrived{};  // what the receiver has not taken yet
    std::size_t taken = 0;              // of the first of them
    bool readable = false;              // may be read from: opened, not held back, not at its end
    bool ended = false;                 // its end is on the line
    bool endArrived = false;
    bool closed = false;  // its end has been passed on
};

enum class End { none, half, reset };

// A connection and what stands behind it. Lives until both ways have ended or one was reset; pieces
// that are still on a line then fall away.
struct Link {
    Link(int clientSide, int serverSide) : client(clientSide), server(serverSide) {}

    Flow& reading(int socket) { return socket == client.get() ? up : down; }
    Flow& writing(int socket) { return socket == client.get() ? down : up; }

    Descriptor client, server;
    Flow up{this, client.get(), server.get()}, down{this, server.get(), client.get()};
    RequestCounter requests;
    bool over = false;
};

struct Piece {
    Time due;
    std::shared_ptr<Link> link;
    Flow* flow;
    std::string bytes;
    End end;
};

// All that goes one way. Pieces arrive in the order in which they came.
class Line {
public:
    Line(Time delay, double nanosecondsPerByte) : delay_(delay), perByte_(nanosecondsPerByte) {}

    bool full(Time time) const { return free_ - time >= queueTime; }

    void put(std::shared_ptr<Link> link, Flow& flow, std::string bytes, End end) {
        free_ = std::max(free_, now()) +
                static_cast<Time>(perByte_ * static_cast<double>(bytes.size()));
        total += bytes.size();
        pieces.push_back({free_ + delay_, std::move(link), &flow, std::move(bytes), end});
    }

    // When a held sender may go on: there is room for half of the queue then.
    Time roomAt() const { return free_ - queueTime / 2; }

    std::deque<Piece> pieces;
    std::vector<std::pair<std::shared_ptr<Link>, Flow*>> held;  // senders that wait for room
    std::uint64_t total = 0;

private:
    Time delay_;
    double perByte_;
    Time free_ = 0;  // when the last byte so far has gone onto the line
};

}  // namespace dorvo::bench

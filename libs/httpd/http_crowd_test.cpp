// Many clients, and greedy ones: who is known is served on.
// The sanitizers' own checks take descriptors.
#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define DORVO_SANITIZED
#endif
#endif
#if !defined(_WIN32) && !defined(DORVO_SANITIZED)
#define DORVO_DESCRIPTORS
#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>
#endif

#include <array>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>

#include "httpd/http_connection.h"
#include "httpd/testing/echo_service.h"

namespace dorvo {

namespace asio = boost::asio;

namespace {

using HttpCrowd = Http;

const std::string known = head("/echo", "Cookie: good\r\n");

// A client whose first request was answered.
std::unique_ptr<Client> introduced(uint16_t port, const std::string& request,
                                   const char* from = nullptr) {
    auto client = std::make_unique<Client>(port, from);
    client->send(request);
    EXPECT_EQ(client->receive().status, 200);
    return client;
}

TEST_F(HttpCrowd, TheOldestStrangerGivesWayAndNobodyKnown) {
    limits.connections = 3;
    restart();
    const auto first = introduced(server->port(), known);
    Client poll(server->port());
    poll.send(sized("/poll", ""));
    service.awaitPolls(1);
    const auto silent = introduced(server->port(), sized("/echo", ""));
    const auto second = introduced(server->port(), known);
    silent->waitForClose();
    const auto third = introduced(server->port(), known);
    poll.waitForClose();  // only when there was no other: the service had its request
    EXPECT_EQ(Client(server->port()).receive().status, 503);
    second->send(sized("/echo", ""));
    EXPECT_EQ(second->receive().status, 200);
    EXPECT_EQ(ask("on").body, "on");
    second->waitForClose();
    for (const auto& client : {first.get(), third.get()}) {
        client->send(known);
        EXPECT_EQ(client->receive().status, 200);
    }
}

TEST_F(HttpCrowd, AnAddressHasItsShareUnlessManyAreBehindIt) {
    limits.connectionsOfAddress = 2;
    for (const bool many : {false, true}) {
        limits.manyBehind.assign(many ? 1 : 0, "127.0.0.1");
        restart();
        const auto other = introduced(server->port(), sized("/echo", ""), "127.0.0.2");
        const auto first = introduced(server->port(), known);
        const auto silent = introduced(server->port(), sized("/echo", ""));
        const auto second = introduced(server->port(), known);
        Client third(server->port());
        third.send(known);
        EXPECT_EQ(third.receive().status, many ? 200 : 503);
        if (!many) {
            silent->waitForClose();
        }
        other->send(sized("/echo", "on"));
        EXPECT_EQ(other->receive().body, "on");
    }
}

TEST_F(HttpCrowd, AStrangerHasLittleTimeAndNobodyKnown) {
    limits.stranger = std::chrono::milliseconds(500);
    restart();
    const auto good = introduced(server->port(), known);
    const auto late = introduced(server->port(), head("/echo", "Cookie: late\r\n"));
    const auto refused = introduced(server->port(), sized("/echo", ""));
    Client silent(server->port());
    Client half(server->port());
    half.send("POST /echo");
    for (Client* stranger : {refused.get(), &silent, &half}) {
        stranger->waitForClose();
    }
    const std::string large(echoLimit + 1, 'x');
    for (const auto& [cookie, status] : {std::pair{"late", 200}, {"other", 401}}) {
        late->send(head("/large", std::string("Cookie: ") + cookie + "\r\nContent-Length: " +
                                      std::to_string(large.size()) + "\r\n") +
                   large);
        EXPECT_EQ(late->receive().status, status);
    }
    late->waitForClose();
    good->send(known);
    EXPECT_EQ(good->receive().status, 200);
}

std::string bodyOf(size_t size) {
    return std::string(size, 'x');
}

TEST_F(HttpCrowd, BodiesTogetherHaveABudget) {
    limits.memoryBytes = 100'000;
    restart();
    const std::string body = bodyOf(60'000);
    Client announced(server->port());
    announced.send(head("/echo", "Content-Length: 60000\r\nExpect: 100-continue\r\n"));
    EXPECT_EQ(announced.receive().status, 100);
    Client second(server->port());
    second.send(sized("/echo", body));
    ASSERT_EQ(second.receive().status, 200);  // for what has not come, nothing was taken
    Client first(server->port());
    first.send(sized("/poll", body));
    service.awaitPolls(1);
    for (const std::string& request :
         {sized("/echo", body), sized("/heavy", bodyOf(20'000)),
          head("/echo", "Transfer-Encoding: chunked\r\n") + "ea60\r\n" + body + "\r\n0\r\n\r\n"}) {
        second.send(request);
        const Answer answer = second.receive();
        EXPECT_EQ(answer.status, 503);
        EXPECT_NE(answer.header("Retry-After"), "");
        second.send(sized("/heavy", bodyOf(16'000)));
        EXPECT_EQ(second.receive().status, 200);  // small ones always are
    }
    service.answerPolls("");
    EXPECT_EQ(first.receive().status, 200);
    first.send(sized("/echo", ""));
    EXPECT_EQ(first.receive().status, 200);  // what it took has come back
    for (const std::string& request : {sized("/echo", body), sized("/heavy", bodyOf(20'000))}) {
        second.send(request);
        EXPECT_EQ(second.receive().status, 200);
    }
}

TEST_F(HttpCrowd, TheMemoryForABodyGoesOneMebibyteAheadOfWhatHasCome) {
    constexpr size_t mebibyte = size_t{1} << 20U;
    limits.memoryBytes = 5 * mebibyte / 2;
    restart();
    const auto large = [](size_t size) {
        return head("/large", "Cookie: good\r\nContent-Length: " + std::to_string(size) + "\r\n");
    };
    const auto slow = introduced(server->port(), known);
    slow->send(large(2 * mebibyte) + bodyOf(20'000));
    EXPECT_EQ(ask("").status, 200);  // what came before has been seen to
    struct Row {
        size_t size;
        int status;
    };
    for (const Row& row : {Row{5 * mebibyte / 4, 200}, Row{2 * mebibyte, 503}}) {
        Client other(server->port());
        other.send(large(row.size) + bodyOf(row.size));
        EXPECT_EQ(other.receive().status, row.status) << row.size;
    }
    slow->send(bodyOf(2 * mebibyte - 20'000));
    EXPECT_EQ(slow->receive().status, 200);
}

TEST_F(HttpCrowd, AClientHasItsShareOfTheMemoryUnlessManyAreBehindIt) {
    limits.memoryOfClientBytes = 50'000;
    for (const bool many : {false, true}) {
        limits.manyBehind.assign(many ? 1 : 0, "127.0.0.1");
        restart();
        Client poll(server->port());
        poll.send(sized("/poll", bodyOf(40'000)));
        service.awaitPolls(1);
        Client same(server->port());
        Client other(server->port(), "127.0.0.2");
        for (Client* client : {&same, &other}) {
            client->send(sized("/echo", bodyOf(40'000)));
            EXPECT_EQ(client->receive().status, client == &other || many ? 200 : 503);
        }
        service.answerPolls(bodyOf(size_t{32} << 20U));  // more than goes unread
        poll.receiveHead();
        for (Client* client : {&same, &other}) {
            client->send(sized("/echo", ""));
            EXPECT_EQ(client->receive().status, client == &other || many ? 200 : 503);
        }
    }
}

TEST(OpenConnections, CountsThoseOfOneNetworkTogether) {
    HttpLimits limits;
    limits.connectionsOfAddress = 1;
    limits.manyBehind = {"::1"};
    OpenConnections open(limits);
    struct Row {
        const char* address;
        bool enters;
    };
    const Row rows[] = {{"2001:db8::1", true}, {"2001:db8::2", false}, {"2001:db8:0:1::1", true},
                        {"192.0.2.1", true},   {"192.0.2.2", true},    {"192.0.2.1", false},
                        {"::1", true},         {"::1", true}};
    uint64_t number = 0;
    for (const Row& row : rows) {
        EXPECT_EQ(open.enter(++number, row.address, nullptr), row.enters) << row.address;
        open.setStanding(number, OpenConnections::Standing::known);
    }
}

// An executor that says when its last copy goes.
class Witness {
public:
    Witness(asio::io_context& io, std::function<void()> gone)
        : io_(&io), last_(nullptr, [gone = std::move(gone)](void*) { gone(); }) {}

    [[nodiscard]] asio::execution_context& query(asio::execution::context_t) const noexcept {
        return *io_;
    }
    static constexpr asio::execution::blocking_t query(asio::execution::blocking_t) noexcept {
        return asio::execution::blocking.never;
    }
    template <class Call>
    void execute(Call call) const {
        asio::post(*io_, std::move(call));
    }
    bool operator==(const Witness& other) const noexcept { return last_ == other.last_; }
    bool operator!=(const Witness& other) const noexcept { return last_ != other.last_; }

private:
    asio::io_context* io_;
    std::shared_ptr<void> last_;
};

// Who waits until all have left destroys the sockets' context next.
TEST(HttpConnection, LeavesWhenAllOfItHasGone) {
    EchoService service;
    asio::io_context workers;
    OpenConnections open((HttpLimits()));
    MemoryBudget memory(1, 1);
    const HttpConnection::Shared shared{service, {}, {}, workers, open, memory};
    asio::io_context io;
    bool wasThere = false;
    auto connection = std::make_shared<HttpConnection>(
        asio::ip::tcp::socket(Witness(io, [&] { wasThere = !open.waitUntilEmpty({}); })), shared,
        1);
    ASSERT_TRUE(open.enter(1, "-", connection));
    connection.reset();
    EXPECT_TRUE(wasThere);
    EXPECT_TRUE(open.waitUntilEmpty({}));
}

TEST_F(HttpCrowd, WhatIsThrownEndsOneConnectionOnly) {
    const auto other = introduced(server->port(), sized("/echo", ""));
    for (const char* path : {"/unjudgeable", "/unanswerable"}) {
        EXPECT_FALSE(hasLogged(std::string(path) + " failed")) << path;
        Client client(server->port());
        client.send(sized(path, ""));
        EXPECT_EQ(client.receive().status, 0) << path;
        EXPECT_TRUE(hasLogged(std::string("POST ") + path + " failed: std::bad_alloc")) << path;
    }
    other->send(sized("/echo", "on"));
    EXPECT_EQ(other->receive().body, "on");
    EXPECT_EQ(ask("on").body, "on");
}

#ifdef DORVO_DESCRIPTORS
// While it lives, the process can open one more descriptor.
class LastDescriptor {
public:
    LastDescriptor() {
        getrlimit(RLIMIT_NOFILE, &before_);
        rlimit low = before_;
        low.rlim_cur = 64;
        setrlimit(RLIMIT_NOFILE, &low);
        for (int fd = 0; (fd = ::open("/dev/null", O_RDONLY | O_CLOEXEC)) >= 0;) {
            all_.push_back(fd);
        }
        ::close(all_.back());
        all_.pop_back();
    }
    ~LastDescriptor() {
        for (const int fd : all_) {
            ::close(fd);
        }
        setrlimit(RLIMIT_NOFILE, &before_);
    }
    LastDescriptor(const LastDescriptor&) = delete;
    LastDescriptor& operator=(const LastDescriptor&) = delete;

    int take(int fd) {
        all_.push_back(fd);
        return fd;
    }

private:
    rlimit before_{};
    std::vector<int> all_;
};

TEST_F(HttpCrowd, AStrangerGivesWayWhereDescriptorsAreShort) {
    const auto in = introduced(server->port(), known);
    const auto silent = introduced(server->port(), sized("/echo", ""));
    LastDescriptor last;
    const int newcomer = last.take(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(server->port());
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(::connect(newcomer, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
    silent->waitForClose();
    ASSERT_EQ(::send(newcomer, known.data(), known.size(), 0), static_cast<ssize_t>(known.size()));
    std::array<char, 12> status{};
    ASSERT_EQ(::recv(newcomer, status.data(), status.size(), MSG_WAITALL), 12);
    EXPECT_EQ(std::string(status.data(), status.size()), "HTTP/1.1 200");
    in->send(known);
    EXPECT_EQ(in->receive().status, 200);
}
#endif

}  // namespace

}  // namespace dorvo

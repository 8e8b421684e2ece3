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

#include "httpd/testing/echo_service.h"

namespace dorvo {

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

TEST_F(HttpCrowd, BodiesTogetherHaveABudget) {
    limits.memoryBytes = 100'000;
    restart();
    const std::string body(60'000, 'x');
    const std::string length = "Content-Length: 60000\r\n";
    Client first(server->port());
    first.send(head("/echo", length + "Expect: 100-continue\r\n"));
    EXPECT_EQ(first.receive().status, 100);
    Client second(server->port());
    for (const std::string& request :
         {head("/echo", length) + body,
          head("/echo", "Transfer-Encoding: chunked\r\n") + "ea60\r\n" + body + "\r\n0\r\n\r\n"}) {
        second.send(request);
        const Answer answer = second.receive();
        EXPECT_EQ(answer.status, 503);
        EXPECT_NE(answer.header("Retry-After"), "");
        second.send(sized("/echo", "small"));
        EXPECT_EQ(second.receive().body, "small");
    }
    first.send(body + sized("/echo", ""));
    EXPECT_EQ(first.receive().body, body);
    EXPECT_EQ(first.receive().status, 200);  // what the first took has come back
    second.send(head("/echo", length) + body);
    EXPECT_EQ(second.receive().body, body);
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

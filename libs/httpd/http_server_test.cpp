// The server's side of HTTP: framing, limits, long polls, and how it stops. All over a real port.
#include "httpd/http_server.h"

#include <gtest/gtest.h>

#include <future>

#include "httpd/testing/echo_service.h"

namespace dorvo {

namespace {

TEST_F(Http, AConnectionServesManyRequestsHoweverTheyAreCut) {
    Client client(server->port());
    const std::string request = sized("/echo", "0123456789");
    for (size_t cut = 0; cut < request.size(); cut += 9) {
        client.send(request.substr(0, cut));
        client.send(request.substr(cut));
        ASSERT_EQ(client.receive().body, "0123456789") << cut;
    }
    client.send(request + request);  // the second before the first is answered
    EXPECT_EQ(client.receive().status, 200);
    EXPECT_EQ(client.receive().status, 200);
}

TEST_F(Http, TakesChunkedAndLargeBodies) {
    Client client(server->port());
    client.send(head("/echo", "Transfer-Encoding: chunked\r\n") + "3\r\nabc\r\n");
    client.send("4\r\ndefg\r\n0\r\n\r\n");
    EXPECT_EQ(client.receive().body, "abcdefg");
    const std::string large(2 * echoLimit, 'x');
    client.send(head("/large", "Cookie: good\r\nExpect: 100-continue\r\nContent-Length: " +
                                   std::to_string(large.size()) + "\r\n"));
    EXPECT_EQ(client.receive().status, 100);
    client.send(large);
    EXPECT_EQ(client.receive().body, large);
}

TEST_F(Http, RefusesWhatItDoesNotServeAndGoesOn) {
    struct Row {
        std::string request;
        int status;
    };
    const std::string tooLarge(2'000'000, ' ');
    const Row rows[] = {
        {"GET /echo HTTP/1.1\r\nHost: x\r\n\r\n", 405},
        {head("/echo", "X: " + std::string(9000, 'x') + "\r\n"), 413},
        {head(std::string(9000, '/'), ""), 413},
        {head("/echo", "Content-Length: 99999999999\r\n"), 413},
        {head("/echo", "Content-Length: 99999999999999999999999\r\n"), 413},
        {sized("/echo", tooLarge), 413},
        {head("/echo", "Transfer-Encoding: chunked\r\n") + "1E8480\r\n" + tooLarge +
             "\r\n0\r\n\r\n",
         413},
        {sized("/large", tooLarge), 401},
    };
    for (const Row& row : rows) {
        Client client(server->port());
        client.send(row.request);
        const Answer answer = client.receive();
        EXPECT_EQ(answer.status, row.status) << row.request.substr(0, 200);
        EXPECT_EQ(answer.header("Allow"), row.status == 405 ? "POST" : "");
    }
    EXPECT_EQ(ask("on").body, "on");
}

TEST_F(Http, ARefusedBodyLeavesTheConnectionInStep) {
    Client client(server->port());
    client.send(sized("/nowhere", std::string(300000, 'x')) + sized("/echo", "next"));
    EXPECT_EQ(client.receive().status, 404);
    EXPECT_EQ(client.receive().body, "next");
}

TEST_F(Http, ClosesWhatIsIdleOrStalled) {
    limits.idle = std::chrono::milliseconds(50);
    limits.head = std::chrono::milliseconds(50);
    limits.stall = std::chrono::milliseconds(50);
    restart();
    const std::string half = head("/echo", "Content-Length: 4\r\n");
    for (const std::string& begun : {std::string(), std::string("POST /"), half, half + "ab"}) {
        Client client(server->port());
        client.send(begun);
        client.waitForClose();
    }
    EXPECT_EQ(ask("on").status, 200);
#ifndef _WIN32  // Wine lets no write go that waits for its reader
    limits.connections = 1;
    restart();
    Client unread(server->port());
    unread.send(head("/poll", "Cookie: good\r\nContent-Length: 0\r\n"));
    service.awaitPolls(1);
    service.answerPolls(std::string(size_t{32} << 20U, 'x'));  // more than goes unread
    while (Client(server->port()).receive().status == 503) {
    }
    EXPECT_EQ(unread.receive().status, 0);
#endif
}

TEST_F(Http, LongPollsHoldNoThread) {
    // More of them than workers.
    std::vector<std::unique_ptr<Client>> clients;
    for (int i = 0; i < 5; ++i) {
        clients.push_back(std::make_unique<Client>(server->port()));
        clients.back()->send(sized("/poll", ""));
    }
    clients[0]->send(sized("/echo", "next"));  // already on its way during the poll
    service.awaitPolls(5);
    EXPECT_EQ(ask("meanwhile").body, "meanwhile");
    service.answerPolls("news");
    for (const auto& client : clients) {
        EXPECT_EQ(client->receive().body, "news");
    }
    EXPECT_EQ(clients[0]->receive().body, "next");
    clients[1]->send(sized("/poll", ""));
    service.awaitPolls(1);
    service.answerPolls("more");
    EXPECT_EQ(clients[1]->receive().body, "more");
}

TEST_F(Http, ALongPollEndsWithItsClientOrItsPatience) {
    {
        Client gone(server->port());
        gone.send(sized("/poll", ""));
        service.awaitPolls(1);
    }
    service.awaitWithdrawn(1);
    Client flooding(server->port());
    flooding.send(sized("/poll", "") + std::string(20000, 'x'));
    service.awaitWithdrawn(2);
    service.patience = std::chrono::milliseconds(1);
    Client patient(server->port());
    for (size_t withdrawn : {3U, 4U}) {
        patient.send(sized("/poll", ""));
        EXPECT_EQ(patient.receive().body, "late");
        service.awaitWithdrawn(withdrawn);
    }
}

TEST_F(Http, StoppingFinishesRequestsAndEndsPollsAtOnce) {
    Client busy(server->port());  // the oldest is told first
    busy.send(head("/echo", "Content-Length: 4\r\nExpect: 100-continue\r\n"));
    EXPECT_EQ(busy.receive().status, 100);  // so the server has read the head
    Client idle(server->port());
    idle.send(sized("/echo", ""));
    EXPECT_EQ(idle.receive().status, 200);
    Client poll(server->port());
    poll.send(sized("/poll", ""));
    service.awaitPolls(1);
    auto stopped = std::async(std::launch::async, [this] { server->stop(); });
    idle.waitForClose();
    poll.waitForClose();
    service.awaitWithdrawn(1);
    busy.send("body");
    const Answer answer = busy.receive();
    EXPECT_EQ(answer.body, "body");
    EXPECT_EQ(answer.header("Connection"), "close");
    busy.waitForClose();
    stopped.get();
}

TEST_F(Http, StoppingDoesNotWaitForeverForAStalledClient) {
    limits.stopPatience = std::chrono::milliseconds(20);
    restart();
    Client stalled(server->port());
    stalled.send(head("/echo", "Content-Length: 100\r\nExpect: 100-continue\r\n"));
    EXPECT_EQ(stalled.receive().status, 100);
    server->stop();
    stalled.waitForClose();
}

TEST_F(Http, ARequestThatIsWholeOnlyAfterThePatienceGoesWithItsConnection) {
    limits.stopPatience = std::chrono::milliseconds(0);
    restart();
    Client late(server->port());
    late.send(sized("/held", ""));
    service.held.get_future().wait();
    auto stopped = std::async(std::launch::async, [this] { server->stop(); });
    EXPECT_EQ(stopped.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    service.letGo.set_value();
    stopped.get();
    EXPECT_EQ(service.handled, 1);
    server.reset();
    EXPECT_EQ(late.receive().status, 0);
}

}  // namespace

}  // namespace dorvo

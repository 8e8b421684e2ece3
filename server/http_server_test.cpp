// The server's side of HTTP: framing, limits, and how it stops.
#include "http_server.h"

#include <future>

#include "http_target.h"
#include "testing/service_fixture.h"

namespace dorvo {

namespace {

class Http : public ServiceFixture {
protected:
    std::string head(std::string_view path, const std::string& fields) const {
        return "POST " + std::string(path) + " HTTP/1.1\r\nHost: x\r\nCookie: " + alice + "\r\n" +
               fields + "\r\n";
    }

    const std::string listBody = R"({"machine":"","jobdefinitionid":""})";
    const std::string listHead =
        head(listInstancesPath, "Content-Length: " + std::to_string(listBody.size()) + "\r\n");
};

TEST_F(Http, AConnectionServesManyRequestsHoweverTheyAreCut) {
    Client client(server->port());
    const std::string request = listHead + listBody;
    for (size_t cut = 0; cut < request.size(); cut += 29) {
        client.send(request.substr(0, cut));
        client.send(request.substr(cut));
        ASSERT_EQ(client.receive().status, 200) << cut;
    }
    client.send(request + request);  // the second before the first is answered
    EXPECT_EQ(client.receive().status, 200);
    EXPECT_EQ(client.receive().status, 200);
}

TEST_F(Http, TakesChunkedBodies) {
    Client client(server->port());
    const std::string chunked = head(startJobPath, "Transfer-Encoding: chunked\r\n");
    const std::string body = R"({"jobdefinitionid":"job","jobinstanceid":"i1","totalfiles":1,)"
                             R"("totaldirectories":0,"totalsize":1,"starttime":"now"})";
    client.send(chunked + "10\r\n" + body.substr(0, 16) + "\r\n");
    client.send("5F\r\n" + body.substr(16, 0x5F) + "\r\n");
    EXPECT_EQ(state("i1"), "");
    const std::string rest = body.substr(16 + 0x5F);
    client.send(std::string(1, static_cast<char>('0' + rest.size())) + "\r\n" + rest +
                "\r\n0\r\n\r\n");
    EXPECT_EQ(client.receive().status, 200);
    EXPECT_EQ(state("i1"), "running");
}

TEST_F(Http, RefusesMalformedRequestsAndGoesOnServing) {
    struct Row {
        std::string request;
        int status;
    };
    const Row rows[] = {
        {"nonsense\r\n\r\n", 400},
        {"GET " + std::string(listInstancesPath) + " HTTP/1.1\r\nHost: x\r\n\r\n", 405},
        {"POST /dorvo HTTP/9.9\r\n\r\n", 400},
        {head(listInstancesPath, "Content-Length: x\r\n"), 400},
        {head(listInstancesPath, "Content-Length: -1\r\n"), 400},
        {head(listInstancesPath, "Content-Length: 35\r\nContent-Length: 36\r\n"), 400},
        {head(listInstancesPath, "Content-Length: 35\r\nTransfer-Encoding: chunked\r\n"), 400},
        {head(listInstancesPath, "Transfer-Encoding: chunked\r\n") + "zz\r\n", 400},
        {head(listInstancesPath, "X: " + std::string(9000, 'x') + "\r\n"), 413},
        {head(std::string(9000, '/'), ""), 413},
        {head(listInstancesPath, "Content-Length: 99999999999\r\n"), 413},
        {head(listInstancesPath, "Content-Length: 2000000\r\n") + std::string(2000000, ' '), 413},
        {head(listInstancesPath, "Transfer-Encoding: chunked\r\n") + "1E8480\r\n" +
             std::string(2000000, ' ') + "\r\n0\r\n\r\n",
         413},
        // Large bodies are for those who are logged in.
        {"POST " + std::string(filesToBackupPath) + " HTTP/1.1\r\nContent-Length: 2000000\r\n\r\n" +
             std::string(2000000, ' '),
         401},
    };
    for (const Row& row : rows) {
        Client client(server->port());
        client.send(row.request);
        EXPECT_EQ(client.receive().status, row.status) << row.request.substr(0, 200);
    }
    EXPECT_EQ(state("none"), "");
}

TEST_F(Http, ARefusedBodyLeavesTheConnectionInStep) {
    Client client(server->port());
    client.send(head("/nowhere", "Content-Length: 300000\r\n") + std::string(300000, 'x') +
                listHead + listBody);
    EXPECT_EQ(client.receive().status, 404);
    EXPECT_EQ(client.receive().status, 200);
}

TEST_F(Http, ABodyThatEndsEarlyChangesNothing) {
    start("i1");
    const std::string body = fileInfo("i1", "a", 1);
    const std::string before = everything();
    Client client(server->port());
    client.send(
        head(uploadFilePath, "Content-Length: " + std::to_string(body.size() + 1) + "\r\n") + body);
    client.shutdownSend();
    client.waitForClose();
    EXPECT_EQ(everything(), before);
}

TEST_F(Http, ClosesWhatIsIdleOrStalled) {
    options.limits.idle = std::chrono::milliseconds(50);
    options.limits.head = std::chrono::milliseconds(50);
    options.limits.stall = std::chrono::milliseconds(50);
    restart();
    for (const std::string& begun :
         {std::string(), std::string("POST /"), listHead, listHead + listBody.substr(0, 5)}) {
        Client client(server->port());
        client.send(begun);
        client.waitForClose();
    }
    EXPECT_EQ(Client(server->port()).post(listInstancesPath, listBody, alice).status, 200);
}

TEST_F(Http, TurnsAwayConnectionsAboveTheLimit) {
    options.limits.connections = 2;
    restart();
    Client first(server->port());
    EXPECT_EQ(first.post(listInstancesPath, listBody, alice).status, 200);
    {
        Client second(server->port());
        EXPECT_EQ(second.post(listInstancesPath, listBody, alice).status, 200);
        Client third(server->port());
        EXPECT_EQ(third.receive().status, 503);
    }
    EXPECT_EQ(first.post(listInstancesPath, listBody, alice).status, 200);
}

TEST_F(Http, StoppingFinishesRequestsInProgress) {
    Client idle(server->port());
    EXPECT_EQ(idle.post(listInstancesPath, listBody, alice).status, 200);
    Client busy(server->port());
    busy.send(head(startJobPath, "Content-Length: 119\r\nExpect: 100-continue\r\n"));
    EXPECT_EQ(busy.receive().status, 100);  // so the server has read the head
    auto stopped = std::async(std::launch::async, [this] { server->stop(); });
    idle.waitForClose();
    std::string body = R"({"jobdefinitionid":"job","jobinstanceid":"i1","totalfiles":1,)"
                       R"("totaldirectories":0,"totalsize":1,"starttime":"now"})";
    body.resize(119, ' ');
    busy.send(body);
    const Answer answer = busy.receive();
    EXPECT_EQ(answer.status, 200);
    EXPECT_EQ(answer.header("Connection"), "close");
    busy.waitForClose();
    stopped.get();
    restart();
    EXPECT_EQ(state("i1"), "running");
}

TEST_F(Http, StoppingDoesNotWaitForeverForAStalledClient) {
    options.limits.stopPatience = std::chrono::milliseconds(20);
    restart();
    Client stalled(server->port());
    stalled.send(head(startJobPath, "Content-Length: 100\r\nExpect: 100-continue\r\n"));
    EXPECT_EQ(stalled.receive().status, 100);
    server->stop();
    stalled.waitForClose();
}

TEST(HttpTarget, IsDecodedAndLosesItsQuery) {
    EXPECT_EQ(decodedPath("/dorvo/Storage%20Server/x"), "/dorvo/Storage Server/x");
    EXPECT_EQ(decodedPath("/a%2Fb%c3%A4?q=%zz"), "/a/b\u00e4");
    for (const char* wrong : {"/%", "/%2", "/%zz", "/%+1", "/%-1", "/a%00"}) {
        EXPECT_EQ(decodedPath(wrong), std::nullopt) << wrong;
    }
}

}  // namespace

}  // namespace dorvo

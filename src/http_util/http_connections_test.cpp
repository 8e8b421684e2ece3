#include "http_util/http_connections.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "support/scripted_server.h"
// The sockets' header comes before the others.
#include "http_util/http_invoker_t.h"
#include "httpmsg/http_request.h"
#include "httpmsg/http_response.h"
#include "support/log_capture.h"
#include "support/signal.h"

namespace dorvo {
namespace {

using test::ScriptedPeer;
using test::ScriptedServer;

HTTP_Connections& connections() {
    return *ATL::CComSingleton<HTTP_Connections>::instance();
}

void answer_all(ScriptedPeer& peer, int) {
    while (!peer.request().empty()) {
        peer.answer("");
    }
}

// One exchange over a connection from the cache, given back afterwards.
bool exchange(uint16_t port) {
    HTTP_Invoker_T invoker("127.0.0.1", port);
    HTTP_Request request(HTTP_METHOD_POST, "/");
    HTTP_Response response;
    request.content_length(0);
    return invoker.connect(connections().connector()) == 0 && invoker.send_request(request) == 0 &&
           invoker.recv_response(response) == 0;
}

TEST(HttpConnections, AreUsedAgain) {
    ScriptedServer server(answer_all);
    for (int i = 0; i < 5; ++i) {
        EXPECT_TRUE(exchange(server.port()));
    }
    EXPECT_EQ(server.connections(), 1);
    connections().stop();
    connections().stop();
    EXPECT_EQ(connections().count(), 0u);
    {
        HTTP_Invoker_T first("127.0.0.1", server.port());  // its connection is nobody else's
        ASSERT_EQ(first.connect(connections().connector()), 0);
        EXPECT_TRUE(exchange(server.port()));
        EXPECT_EQ(server.connections(), 3);
        connections().stop();
        EXPECT_EQ(connections().count(), 1u);
    }
    connections().stop();
    EXPECT_EQ(connections().count(), 0u);
}

TEST(HttpConnections, ThatDiedOrGotStrayBytesWhileIdleAreNotHandedOut) {
    for (const bool stray : {false, true}) {
        test::Signal go;
        test::Signal gone;
        ScriptedServer server([&](ScriptedPeer& peer, int connection) {
            peer.request();
            peer.answer("");
            if (connection == 0) {
                go.wait();
                stray ? static_cast<void>(peer.send("HTTP/1.1 408 Request Timeout\r\n\r\n"))
                      : peer.close();
                gone.set();
            }
            peer.drain();
        });
        EXPECT_TRUE(exchange(server.port()));
        go.set();
        ASSERT_TRUE(gone.wait());
        test::LogCapture capture;
        EXPECT_TRUE(exchange(server.port()));
        EXPECT_TRUE(capture.lines().empty());
        EXPECT_EQ(server.connections(), 2);
        EXPECT_EQ(connections().count(), 1u);
        connections().stop();
    }
}

// Whatever a connection was in the middle of, nobody gets it after that.
TEST(HttpConnections, InTheMiddleOfAnExchangeAreNotKept) {
    ScriptedServer server([](ScriptedPeer& peer, int) {
        peer.request();
        peer.answer("hello");
        peer.drain();
    });
    for (const int stop_at : {HTTP_Invoker_T::REQUEST_DONE, HTTP_Invoker_T::RECEIVING_BODY}) {
        {
            HTTP_Invoker_T invoker("127.0.0.1", server.port());
            HTTP_Request request(HTTP_METHOD_POST, "/");
            request.content_length(0);
            ASSERT_EQ(invoker.connect(connections().connector()), 0);
            ASSERT_EQ(invoker.send_request(request), 0);
            HTTP_Response response;
            if (stop_at == HTTP_Invoker_T::RECEIVING_BODY) {
                ASSERT_EQ(invoker.recv_response(response), 0);
            }
            EXPECT_EQ(invoker.state(), stop_at);
            EXPECT_EQ(HTTP_Invoker_T(invoker).state(), HTTP_Invoker_T::NOT_CONNECTED);
        }
        EXPECT_EQ(connections().count(), 0u);
    }
}

// Threads that connect while others put connections to rest: none is lost, none has two users.
TEST(HttpConnections, OfManyThreadsStayApart) {
    ScriptedServer server([](ScriptedPeer& peer, int) {
        for (std::string request = peer.request(); !request.empty(); request = peer.request()) {
            // The path comes back, so that an answer to somebody else would be seen.
            const size_t begin = request.find(' ') + 1;
            peer.answer(
                "", "200 OK",
                "ETag: " + request.substr(begin, request.find(' ', begin) - begin) + "\r\n");
        }
    });
    constexpr int threads = 4;
    std::atomic<int> good{0};
    std::vector<std::thread> running;
    running.reserve(threads);
    for (int t = 0; t < threads; ++t) {
        running.emplace_back([&, t] {
            for (int i = 0; i < 50; ++i) {
                HTTP_Invoker_T invoker("127.0.0.1", server.port());
                const std::string path = "/" + std::to_string(t) + "/" + std::to_string(i);
                HTTP_Request request(HTTP_METHOD_GET, path);
                HTTP_Response response;
                if (invoker.connect(connections().connector()) == 0 &&
                    invoker.send_request(request) == 0 && invoker.recv_response(response) == 0 &&
                    response.headers().get(HTTP_HEAD_ETAG) == path) {
                    ++good;
                }
                if (i % 10 == 0) {
                    invoker.close();
                }
            }
        });
    }
    for (std::thread& thread : running) {
        thread.join();
    }
    EXPECT_EQ(good, threads * 50);
    EXPECT_LE(connections().count(), size_t{threads});
    connections().stop();
    EXPECT_EQ(connections().count(), 0u);
}

}  // namespace
}  // namespace dorvo

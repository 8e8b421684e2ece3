#include "support/scripted_server.h"
// The sockets' header comes before the others.
#include <ace/os_include/sys/os_uio.h>
#include <gtest/gtest.h>

#include "base/interrupter.h"
#include "http_util/http_connections.h"
#include "http_util/http_invoker_t.h"
#include "httpmsg/http_request.h"
#include "httpmsg/http_response.h"
#include "support/log_capture.h"
#include "support/signal.h"

namespace dorvo {
namespace {

using test::LogCapture;
using test::ScriptedPeer;
using test::ScriptedServer;

HTTP_Connector& connector() {
    static HTTP_Connector* const made = [] {
        startAce();
        return new HTTP_Connector;
    }();
    return *made;
}

iovec piece(const std::string& text) {
    iovec made{};
    made.iov_base = const_cast<char*>(text.data());
    made.iov_len = static_cast<u_long>(text.size());
    return made;
}

// One invoker that is connected to a server playing the script.
class HttpInvoker : public testing::Test {
protected:
    ~HttpInvoker() override {
        invoker.reset();
        server.reset();
        connector().connections().close_idle();
        EXPECT_EQ(connector().connections().count(), 0u);
    }

    void serve(ScriptedServer::Script script) {
        server = std::make_unique<ScriptedServer>(std::move(script));
        invoker = std::make_unique<HTTP_Invoker_T>("127.0.0.1", server->port());
        ASSERT_EQ(invoker->connect(connector()), 0);
    }

    // Sends a POST without a body and receives the head.
    int ask(HTTP_Response& response) {
        HTTP_Request request(HTTP_METHOD_POST, "/x");
        request.content_length(0);
        return invoker->send_request(request) == 0 ? invoker->recv_response(response) : -1;
    }
    // The rest of the body, in reads of `step` bytes; the last result in `result`.
    std::string read_all(int64_t& result, size_t step = 4096) {
        HTTP_Input_Stream stream(*invoker);
        std::string body;
        std::string bytes(step, '\0');
        while ((result = stream.read(bytes.data(), step)) > 0) {
            body.append(bytes, 0, static_cast<size_t>(result));
        }
        return body;
    }

    std::unique_ptr<ScriptedServer> server;
    std::unique_ptr<HTTP_Invoker_T> invoker;
};

TEST_F(HttpInvoker, SendsTheHeadInSlotOrderAndFillsTheHost) {
    std::string seen;
    serve([&](ScriptedPeer& peer, int) {
        seen = peer.request();
        peer.answer("");
    });
    HTTP_Request request(HTTP_METHOD_POST, "/a%20b?c=d");
    request.content_length(0);
    request.cookie("DORVOSESSION=1");
    request.headers().put("X-Not-Sent", "1");
    ASSERT_EQ(invoker->send_request(request), 0);
    HTTP_Response response;
    ASSERT_EQ(invoker->recv_response(response), 0);
    EXPECT_EQ(seen,
              "POST /a%20b?c=d HTTP/1.1\r\nCookie: DORVOSESSION=1\r\nHost: 127.0.0.1\r\n"
              "Content-Length: 0\r\n\r\n");
    request.headers().put(HTTP_HEAD_HOST, "named");
    EXPECT_EQ(invoker->send_request(request), 0);
}

TEST_F(HttpInvoker, SendsAPlainBodyOfTheAnnouncedLength) {
    std::string seen;
    serve([&](ScriptedPeer& peer, int) {
        seen = peer.request();
        peer.answer("");
        peer.drain();
    });
    ASSERT_EQ(invoker->set_send_buffer(65536), 0);
    HTTP_Request request(HTTP_METHOD_PUT, "/");
    request.content_length(10);
    ASSERT_EQ(invoker->send_request(request), 0);
    EXPECT_EQ(invoker->state(), 5);
    EXPECT_EQ(invoker->send_content("01", 2), 2);
    EXPECT_EQ(invoker->state(), 6);
    const std::string texts[] = {"23", "", "456", "456789more"};
    const iovec pieces[] = {piece(texts[0]), piece(texts[1]), piece(texts[2])};
    EXPECT_EQ(invoker->send_content(pieces, 3), 5);
    EXPECT_EQ(invoker->send_content("789more", 7), 3);
    EXPECT_EQ(invoker->state(), 7);
    HTTP_Response response;
    EXPECT_EQ(invoker->recv_response(response), 0);
    EXPECT_TRUE(seen.ends_with("\r\n\r\n0123456789")) << seen;

    LogCapture quiet;
    ASSERT_EQ(invoker->send_request(request), 0);
    const iovec much[] = {piece(texts[0]), piece(texts[3])};
    EXPECT_EQ(invoker->send_content(much, 2), -1);
    EXPECT_EQ(GetLastError(), 7u);
}

TEST_F(HttpInvoker, ReadsResponsesThatComeInPieces) {
    const std::string answers[] = {
        "HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nhello",
        "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n2\r\nhe\r\n3\r\nllo\r\n0\r\nT: "
        "x\r\n\r\n",
        "HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nhello",
    };
    for (const std::string& answer : answers) {
        serve([&](ScriptedPeer& peer, int) {
            for (size_t split = 0; !peer.request().empty(); ++split) {
                peer.send(answer.substr(0, split));
                peer.send(answer.substr(split));
            }
        });
        for (size_t split = 0; split <= answer.size(); ++split) {
            HTTP_Response response;
            ASSERT_EQ(ask(response), 0) << answer << split;
            EXPECT_EQ(invoker->state(), 9);
            int64_t result = 0;
            EXPECT_EQ(read_all(result, 1 + split % 7), "hello") << answer << split;
            EXPECT_EQ(result, 0);
            EXPECT_EQ(invoker->state(), 11);
            ASSERT_TRUE(invoker->keep_alive());
        }
        EXPECT_EQ(server->connections(), 1);
        invoker->close();
    }
}

// However early the server goes, it is a failure with a code that counts as a network error.
TEST_F(HttpInvoker, FailsWhenThePeerClosesTooEarly) {
    const std::string answers[] = {
        "HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nhello",
        "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nhello\r\n0\r\n\r\n"};
    for (const std::string& answer : answers) {
        for (size_t size = 0; size < answer.size(); ++size) {
            LogCapture quiet;
            serve([&](ScriptedPeer& peer, int) {
                peer.request();
                peer.send(answer.substr(0, size));
            });
            HTTP_Response response;
            int64_t result = ask(response);
            if (result == 0) {
                read_all(result);
            }
            EXPECT_EQ(result, -1) << size;
            EXPECT_EQ(GetLastError(), 10101u) << size;
            invoker->close();
        }
    }
}

TEST_F(HttpInvoker, ReceivesAnExactNumberOfBytes) {
    serve([](ScriptedPeer& peer, int) {
        peer.send("01234");
        peer.send("56789ab");
    });
    char bytes[10];
    EXPECT_EQ(invoker->recv_n(bytes, sizeof(bytes)), 10);
    EXPECT_EQ(std::string(bytes, 10), "0123456789");
    EXPECT_EQ(invoker->recv_n(bytes, sizeof(bytes)), -1);
    EXPECT_EQ(GetLastError(), 10101u);
}

// A body without end keeps the socket readable all the time.
TEST_F(HttpInvoker, GivesUpABodyThatNeverEndsWhenTheJobMustStop) {
    test::Signal stop;
    const interrupter asked(stop.handle());
    serve([&](ScriptedPeer& peer, int) {
        peer.request();
        peer.send("HTTP/1.1 200 OK\r\nContent-Length: 1099511627776\r\n\r\n");
        const std::string block(65536, 'x');
        while (peer.send(block)) {
            stop.set();
        }
    });
    invoker->set_interrupter(&asked);
    HTTP_Response response;
    ASSERT_EQ(ask(response), 0);
    int64_t result = 0;
    read_all(result, 65536);
    EXPECT_EQ(result, -1);
    EXPECT_EQ(GetLastError(), 1223u);
}

// A server that takes nothing: what cannot be sent is given up too.
TEST_F(HttpInvoker, GivesUpSendingWhenTheJobMustStop) {
    test::Signal stop;
    test::Signal done;
    const interrupter asked(stop.handle());
    serve([&](ScriptedPeer&, int) { done.wait(); });
    invoker->set_interrupter(&asked);
    stop.set();
    HTTP_Request request(HTTP_METHOD_POST, "/");
    request.content_length(1ull << 40);
    ASSERT_EQ(invoker->send_request(request), 0);
    const std::string block(1 << 20, 'x');
    int64_t sent = 0;
    while (sent >= 0) {
        sent = invoker->send_content(block.data(), static_cast<uint32_t>(block.size()));
    }
    EXPECT_EQ(GetLastError(), 1223u);
    done.set();
}

}  // namespace
}  // namespace dorvo

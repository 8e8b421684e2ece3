#include "http_util/web_server_invoker.h"

#include <gtest/gtest.h>

#include "support/scripted_server.h"
// The sockets' header comes before the others.
#include "base/interrupter.h"
#include "http_util/http_command.h"
#include "http_util/http_connections.h"
#include "support/log_capture.h"
#include "support/signal.h"

namespace dorvo {
namespace {

using json_spirit::Value;
using test::LogCapture;
using test::ScriptedPeer;
using test::ScriptedServer;

// How a request of the service looks, with both of its optional parts.
class Greet_Request : public Request_T<Value> {
public:
    Greet_Request() : Request_T("/greet") {}

    bool prepare() {
        ++prepared;
        return true;
    }
    void handle(Response_T<Value>&) { ++handled; }

    int prepared = 0;
    int handled = 0;
};
using Greet_Command = Command_To_Server<Greet_Request, Response_T<Value>>;

// Of which no answer is waited for that takes its time.
class Impatient_Request : public Greet_Request {
public:
    static constexpr uint64_t answer_timeout = 20;
};

class WebServerInvoker : public testing::Test {
protected:
    ~WebServerInvoker() override {
        invoker = Web_Server_Invoker();
        server.reset();
        connections().stop();
        EXPECT_EQ(connections().count(), 0u);
    }

    void serve(ScriptedServer::Script script) {
        server = std::make_unique<ScriptedServer>(std::move(script));
        ASSERT_TRUE(invoker.set_server("127.0.0.1", server->port(), 65536));
    }
    static HTTP_Connections& connections() {
        return *ATL::CComSingleton<HTTP_Connections>::instance();
    }
    static bool head_has(const std::string& request, const std::string& line) {
        return request.find(line + "\r\n") < request.find("\r\n\r\n") + 2;
    }

    std::unique_ptr<ScriptedServer> server;
    Web_Server_Invoker invoker;
    Greet_Command greet{"Greet"};
};

TEST_F(WebServerInvoker, RefusesAServerWithoutNameOrPort) {
    LogCapture quiet;
    EXPECT_FALSE(invoker.set_server(nullptr, 80, 0));
    EXPECT_FALSE(invoker.set_server("127.0.0.1", 0, 0));
    EXPECT_EQ(invoker.run(greet), -1);
    EXPECT_EQ(greet.state(), 64);
    EXPECT_EQ(GetLastError(), 87u);
}

// What goes wrong at the server, and how often the exchange is tried.
TEST_F(WebServerInvoker, TriesAFailedExchangeExactlyOnceMore) {
    const std::tuple<const char*, std::string, unsigned> rows[] = {
        {"nothing", "", 10101},
        {"half a head", "HTTP/1.1 200 OK\r\nCont", 10101},
        {"half a body", "HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\n{", 10101},
        {"no HTTP", "hello\r\n\r\n", 13},
        {"a head without end", "HTTP/1.1 200 " + std::string(9000, 'x'), 13},
        {"no JSON", "HTTP/1.1 200 OK\r\nContent-Length: 1\r\n\r\n{", 13},
        {"too large", "HTTP/1.1 200 OK\r\nContent-Length: 101\r\n\r\n", 223},
        {"too large in chunks",
         "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n65\r\n" + std::string(101, 'x') +
             "\r\n0\r\n\r\n",
         223},
    };
    for (const auto& [name, answer, error] : rows) {
        for (const bool twice : {false, true}) {
            LogCapture quiet;
            serve([&, &answer = answer](ScriptedPeer& peer, int connection) {
                peer.request();
                if (connection == 0 || twice) {
                    peer.send(answer);
                } else {
                    peer.answer("{}");
                }
            });
            Greet_Command command("Greet");
            command.body_limit(100);
            const int result = invoker.run(command);
            const DWORD found = GetLastError();
            EXPECT_EQ(result, twice ? -1 : 0) << name;
            EXPECT_EQ(command.state(), twice ? 16384 : 1) << name;
            EXPECT_EQ(server->connections(), 2) << name;
            EXPECT_EQ(command.request().prepared, 2) << name;
            EXPECT_EQ(command.request().handled, twice ? 0 : 1) << name;
            if (twice) {
                EXPECT_EQ(found, error) << name;
                EXPECT_EQ(invoker.invoker()->state(), 1) << name;
            }
        }
    }
}

TEST_F(WebServerInvoker, ReconnectsWhenTheServerClosed) {
    for (const char* announced : {"Connection: close\r\n", ""}) {
        LogCapture capture;
        serve([&](ScriptedPeer& peer, int) {
            peer.request();
            peer.answer("{}", "200 OK", announced);
        });
        for (int i = 0; i < 3; ++i) {
            Greet_Command command("Greet");
            EXPECT_EQ(invoker.run(command), 0) << i;
        }
        EXPECT_EQ(server->connections(), 3);
        if (*announced != '\0') {
            EXPECT_EQ(invoker.invoker()->state(), 1);
            EXPECT_FALSE(capture.has("Greet: Failed, retrying...\n"));
        }
    }
}

TEST_F(WebServerInvoker, KeepsTheConnectionAfterAnErrorAnswer) {
    serve([&](ScriptedPeer& peer, int) {
        while (!peer.request().empty()) {
            peer.answer("<html>no</html>", "500 Internal Server Error");
        }
    });
    for (int i = 0; i < 2; ++i) {
        Greet_Command command("Greet");
        EXPECT_EQ(invoker.run(command), 0);
        EXPECT_EQ(command.response().status(), 500);
        EXPECT_EQ(command.response().error_text(), "<html>no</html>");
        EXPECT_TRUE(command.response().body().is_null());
        EXPECT_EQ(command.request().handled, 1);
    }
    EXPECT_EQ(server->connections(), 1);
}

TEST_F(WebServerInvoker, DoesNotReadAnErrorAnswerWithoutEnd) {
    serve([&](ScriptedPeer& peer, int) {
        peer.request();
        peer.send("HTTP/1.1 503 Service Unavailable\r\nContent-Length: 1099511627776\r\n\r\n");
        const std::string block(65536, 'x');
        while (peer.send(block)) {
        }
    });
    EXPECT_EQ(invoker.run(greet), 0);
    EXPECT_EQ(greet.response().status(), 503);
    EXPECT_EQ(greet.response().error_text().size(), 1048576u);
    EXPECT_EQ(invoker.invoker()->state(), 1);
    EXPECT_EQ(server->connections(), 1);
}

TEST_F(WebServerInvoker, FollowsARedirectToTheSameServerOnly) {
    LogCapture quiet;
    std::string second;
    serve([&](ScriptedPeer& peer, int) {
        peer.request();
        peer.answer("moved", "302 Found", "Location: http://elsewhere:81/new?x=1\r\n");
        second = peer.request();
        peer.answer("{}");
    });
    greet.request().body(json_spirit::Object{{"name", "x"}});
    EXPECT_EQ(invoker.run(greet), 0);
    EXPECT_EQ(greet.response().status(), 200);
    EXPECT_TRUE(second.starts_with("POST /new?x=1 HTTP/1.1\r\n")) << second;
    EXPECT_TRUE(second.ends_with(R"({"name":"x"})")) << second;
    EXPECT_TRUE(head_has(second, "Host: 127.0.0.1")) << second;
    EXPECT_EQ(server->connections(), 1);
    EXPECT_EQ(greet.request().handled, 1);
}

TEST_F(WebServerInvoker, HandsOverARedirectThatLeadsNowhere) {
    for (const char* location : {"", "Location: /new\r\n", "Location: http://elsewhere\r\n"}) {
        LogCapture quiet;
        serve([&](ScriptedPeer& peer, int) {
            peer.request();
            peer.answer("", "302 Found", location);
            peer.drain();
        });
        Greet_Command command("Greet");
        EXPECT_EQ(invoker.run(command), 0);
        EXPECT_EQ(command.response().status(), 302);
        EXPECT_EQ(command.request().handled, 1);
    }
}

// What comes over a connection between two commands answers neither, and an idle close is no
// failure: the one retry is still there for the connection that comes next.
TEST_F(WebServerInvoker, DoesNotUseAHeldConnectionThatSpokeOrWasClosed) {
    for (const bool speaks : {false, true}) {
        for (const bool fails : {false, true}) {
            SCOPED_TRACE(testing::Message() << speaks << fails);
            LogCapture capture;
            test::Signal go;
            test::Signal gone;
            serve([&](ScriptedPeer& peer, int connection) {
                peer.request();
                if (connection == 1 && fails) {
                    return;
                }
                peer.answer("{}");
                if (connection == 0) {
                    go.wait();
                    speaks ? static_cast<void>(peer.answer("", "408 Request Timeout"))
                           : peer.close();
                    gone.set();
                }
                peer.drain();
            });
            EXPECT_EQ(invoker.run(greet), 0);
            go.set();
            ASSERT_TRUE(gone.wait());
            Greet_Command command("Greet");
            EXPECT_EQ(invoker.run(command), 0);
            EXPECT_EQ(command.response().status(), 200);
            EXPECT_EQ(command.request().prepared, fails ? 2 : 1);
            EXPECT_EQ(server->connections(), fails ? 3 : 2);
            EXPECT_EQ(capture.has("Greet: Failed, retrying...\n"), fails);
            greet.state(HTTP_Command::READY);
        }
    }
}

// Says stop after so many pauses, and waits for none of them.
class Impatient : public interrupter {
public:
    explicit Impatient(size_t pauses) : pauses_(pauses) {}
    bool interrupted() const override { return waited.size() == pauses_; }
    void wait(DWORD ms) const override { waited.push_back(ms); }

    mutable std::vector<DWORD> waited;

private:
    size_t pauses_;
};

TEST_F(WebServerInvoker, FollowsRedirectsOfOneExchangeEverMoreSlowly) {
    serve([&](ScriptedPeer& peer, int) {
        for (int i = 0; i < 20 && !peer.request().empty(); ++i) {
            peer.answer("", "302 Found", "Location: http://a/again\r\n");
        }
    });
    for (int exchange = 0; exchange < 2; ++exchange) {
        const LogCapture quiet;
        const Impatient stop(12);
        invoker.set_interrupter(&stop);
        Greet_Command command("Greet");
        EXPECT_EQ(invoker.run(command), -1);
        EXPECT_EQ(GetLastError(), 1223u);
        invoker.set_interrupter(nullptr);
        EXPECT_EQ(stop.waited, (std::vector<DWORD>{0, 100, 200, 400, 800, 1600, 3200, 6400, 12800,
                                                   25600, 30000, 30000}));
        EXPECT_EQ(command.request().prepared, 12);
    }
}

// It has the connection, and the request: without a limit it would be waited for as long as it
// runs.
TEST_F(WebServerInvoker, GivesUpAServerThatFallsSilent) {
    for (const char* const said : {"", "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\n{"}) {
        serve([&](ScriptedPeer& peer, int) {
            peer.request();
            peer.send(said);
            peer.drain();
        });
        Command_To_Server<Impatient_Request, Response_T<Value>> command("Greet");
        EXPECT_EQ(invoker.run(command), -1) << said;
        EXPECT_EQ(GetLastError(), 10060u) << said;
        EXPECT_EQ(server->connections(), 2) << said;
        EXPECT_EQ(invoker.invoker()->state(), 1) << said;
    }
}

// Neither a server that keeps silent nor one that redirects without end holds up a stop.
TEST_F(WebServerInvoker, DoesNotTryAgainWhenTheJobMustStop) {
    for (const bool redirects : {false, true}) {
        LogCapture capture;
        test::Signal stop;
        const interrupter asked(stop.handle());
        serve([&](ScriptedPeer& peer, int) {
            for (int i = 0; !peer.request().empty(); ++i) {
                if (!redirects || i == 2) {
                    stop.set();
                }
                if (redirects) {
                    peer.answer("", "302 Found", "Location: http://a/again\r\n");
                }
            }
        });
        invoker.set_interrupter(&asked);
        Greet_Command command("Greet");
        EXPECT_EQ(invoker.run(command), -1);
        invoker.set_interrupter(nullptr);
        EXPECT_EQ(GetLastError(), 1223u);
        EXPECT_EQ(command.request().prepared, redirects ? 3 : 1);
        EXPECT_EQ(server->connections(), 1);
        EXPECT_EQ(invoker.invoker()->state(), 1);
        EXPECT_FALSE(capture.has("Greet: Failed, retrying...\n"));
    }
}

}  // namespace
}  // namespace dorvo

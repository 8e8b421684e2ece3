// The control port as its clients see it: a real port, a real event log, an engine of the test's.
#include "control/controlserver.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>

#include "base/job_state.h"
#include "engine/fakeengine.h"
#include "httpd/testing/client.h"
#include "notify/jobnotifyclient.h"
#include "support/signal.h"

namespace dorvo::agent {
namespace {

using test::Signal;

class ControlPort : public testing::Test {
protected:
    std::string request(const std::string& line, const std::string& fields,
                        const std::string& body = {}) const {
        return line + " HTTP/1.1\r\n" + fields + "Content-Length: " + std::to_string(body.size()) +
               "\r\n\r\n" + body;
    }

    Answer ask(const std::string& line, const std::string& fields, const std::string& body = {}) {
        Client client(server.address().port);
        client.send(request(line, fields, body));
        return client.receive();
    }

    Answer command(const std::string& name, const std::string& body) {
        return ask("POST /control/" + name, host + token, body);
    }

    FakeEngine engine;
    EventLog events;
    ControlServer server{engine, events};
    const std::string host = "Host: localhost\r\n";
    const std::string token = "Authorization: Bearer " + server.address().token + "\r\n";
    const std::string job = R"({"id":"J"})";
};

TEST_F(ControlPort, AnswersOnlyWhoMayAsk) {
    const std::string shorter = token.substr(0, token.size() - 3) + "\r\n";
    const std::string other = token.substr(0, token.size() - 3) + "x\r\n";
    struct Row {
        const char* name;
        std::string line;
        std::string fields;
        int status;
    };
    const std::string pause = "POST /control/pause";
    const Row rows[] = {
        {"no token", pause, host, 403},
        {"a shorter token", pause, host + shorter, 403},
        {"another token", pause, host + other, 403},
        {"no scheme", pause, host + "Authorization: " + server.address().token + "\r\n", 403},
        {"an empty token", pause, host + "Authorization: Bearer \r\n", 403},
        {"an unknown path", "POST /control/nothing", host, 403},
        {"the root", "GET /", host, 403},
        {"news by POST", "POST /jobnotify/", host, 403},
        {"news below", "GET /jobnotify/x", host, 403},
        {"news to a page", "GET /jobnotify/", host + "Origin: http://localhost\r\n", 403},
        {"news of a foreign name", "GET /jobnotify/", "Host: evil.example\r\n", 403},
        {"a page", pause, host + token + "Origin: null\r\n", 403},
        {"an image of a page", "GET /jobnotify/", host + "Sec-Fetch-Site: cross-site\r\n", 403},
        {"no host", pause, token, 400},
        {"a foreign host", pause, token + "Host: localhost.evil.example\r\n", 403},
        {"a user in the host", pause, token + "Host: localhost:80@evil.example\r\n", 400},
        {"an unknown path with the token", "POST /control/nothing", host + token, 404},
        {"another method", "GET /control/pause", host + token, 405},
        {"an address with a port", pause, token + "Host: 127.0.0.1:1\r\n", 200},
        {"the other address", pause, token + "Host: [::1]:65535\r\n", 200},
        {"upper case", pause, token + "Host: LOCALHOST\r\n", 200},
    };
    for (const Row& row : rows) {
        const Answer answer = ask(row.line, row.fields, job);
        EXPECT_EQ(answer.status, row.status) << row.name;
        EXPECT_EQ(engine.takeNote(), row.status == 200 ? "tell 2 J" : "") << row.name;
        EXPECT_EQ(answer.json().contains("error"), row.status != 200) << row.name;
    }
}

TEST_F(ControlPort, RefusesWhatIsMalformedOrTooLarge) {
    struct Row {
        const char* name;
        std::string body;
        int status = 400;
    };
    const Row rows[] = {
        {"pause", ""},
        {"pause", "x"},
        {"pause", "[]"},
        {"pause", "{}"},
        {"pause", R"({"id":1})"},
        {"pause", R"({"id":"bad"})", 409},
        {"pause", job + std::string(20'000, ' '), 413},
        {"submit", R"({"definition":"text"})"},
        {"submit", R"({"definition":{"id":"J"}})"},
        {"submit", std::string(2'000'000, ' '), 413},
        {"server", R"({"host":"h","port":0,"name":""})"},
        {"server", R"({"host":"h","port":65536,"name":""})"},
        {"snapshots", R"({"enabled":1})"},
        {"events", R"({"after":"0"})"},
        {"status", ""},
    };
    for (const Row& row : rows) {
        const Answer answer = command(row.name, row.body);
        EXPECT_EQ(answer.status, row.status) << row.name << " " << row.body.substr(0, 100);
        EXPECT_TRUE(answer.json().contains("error")) << row.name;
        EXPECT_EQ(engine.takeNote(), "") << row.name;
    }
    EXPECT_EQ(command("pause", job).status, 200);
}

TEST_F(ControlPort, OneThatStallsHoldsNobodyUp) {
    std::vector<std::unique_ptr<Client>> stalled;
    const std::string whole = request("POST /control/pause", host + token, job);
    for (size_t i = 0; i < 80; ++i) {  // more than may connect
        stalled.push_back(std::make_unique<Client>(server.address().port));
        stalled.back()->send(whole.substr(0, i % 16 * whole.size() / 16));
    }
    EXPECT_EQ(command("pause", job).status, 200);
}

TEST_F(ControlPort, CallsThatWaitForTheServerLeaveRoomAndEndWithTheirClient) {
    constexpr int slow = 4;
    std::atomic<int> waiting = 0;
    Signal all;
    Signal none;
    engine.onLogin = [&](const GiveUp& giveUp) {
        if (++waiting == slow) {
            all.set();
        }
        while (!giveUp()) {
            Sleep(1);
        }
        if (--waiting == 0) {
            none.set();
        }
    };
    const std::string login =
        request("POST /control/login", host + token, R"({"user":"alice","password":"p"})");
    std::vector<std::unique_ptr<Client>> clients;
    for (int i = 0; i < slow; ++i) {
        clients.push_back(std::make_unique<Client>(server.address().port));
        clients.back()->send(login);
    }
    ASSERT_TRUE(all.wait());
    EXPECT_EQ(ask("POST /control/login", host + token, R"({"user":"bob","password":"p"})").status,
              503);
    EXPECT_EQ(command("pause", job).status, 200);
    clients.clear();
    EXPECT_TRUE(none.wait());
}

// Asks again in each answer, as a window that shows the states does, until "last" is among them.
class StateWatcher : public JobNotifyClient {
public:
    ~StateWatcher() override { Close(); }

    HRESULT open(uint16_t port) {
        port_ = port;
        return Open(L"127.0.0.1", port);
    }

    Signal first, last, failed;  // from the last on news does not change any more
    std::vector<std::pair<std::string, int>> news;

private:
    void OnJobState(const char* id, int state) override {
        news.emplace_back(id, state);
        first.set();
        if (news.back().first == "last") {
            last.set();
        } else {
            Open(L"127.0.0.1", port_);
        }
    }
    void OnRequestError(const WINHTTP_ASYNC_RESULT&) override { failed.set(); }

    uint16_t port_ = 0;
};

TEST_F(ControlPort, TellsAJobNotifyClientEveryStateInOrder) {
    StateWatcher watcher;
    ASSERT_EQ(watcher.open(server.address().port), S_OK);
    std::vector<std::pair<std::string, int>> told;
    const auto tell = [&](const std::string& id) {
        const JobState state = told.size() % 2 == 0 ? JobState::running : JobState::paused;
        told.emplace_back(id, static_cast<int>(state));
        events.deliver(R"({"id":")" + id + R"(","state":")" + jobStateToString(state) + "\"}");
    };
    // Its first poll waits for what comes from then on: it is there when it hears something.
    while (WaitForSingleObject(watcher.first.handle(), 10) != WAIT_OBJECT_0) {
        tell("J" + std::to_string(told.size()));
    }
    for (int i = 0; i < 200; ++i) {
        tell("K" + std::to_string(i));
    }
    tell("last");
    ASSERT_TRUE(watcher.last.wait());
    const auto heardFirst = std::find(told.begin(), told.end(), watcher.news.front());
    EXPECT_EQ(watcher.news, decltype(told)(heardFirst, told.end()));

    ASSERT_EQ(watcher.open(server.address().port), S_OK);
    server.stop();
    EXPECT_TRUE(watcher.failed.wait());
}

}  // namespace
}  // namespace dorvo::agent

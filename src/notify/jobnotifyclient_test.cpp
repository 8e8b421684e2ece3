#include "notify/jobnotifyclient.h"

#include <gtest/gtest.h>

#include <functional>
#include <new>

#include "base/job_state.h"
#include "support/log_capture.h"
#include "support/scripted_server.h"
#include "support/signal.h"

namespace dorvo {
namespace {

using test::ScriptedPeer;
using test::ScriptedServer;
using test::Signal;

// What a client was told; outlives it.
struct Calls {
    std::vector<std::pair<std::string, int>> news;
    std::function<void()> onNews = [] {};
    Signal read{true};
    Signal completed{true};
    Signal failed{true};
};

class Client : public JobNotifyClient {
public:
    explicit Client(Calls& calls, DWORD retryDelayMs = defaultRetryDelayMs)
        : JobNotifyClient(retryDelayMs), calls_(calls) {}
    ~Client() override { Close(); }

    HRESULT open(const ScriptedServer& server) { return Open(L"127.0.0.1", server.port()); }

private:
    HRESULT OnReadComplete(const void* data, DWORD size) override {
        const HRESULT result = JobNotifyClient::OnReadComplete(data, size);
        calls_.read.set();
        return result;
    }
    void OnResponseComplete(HRESULT result) override {
        const struct AtEnd {
            Signal& signal;
            ~AtEnd() { signal.set(); }
        } atEnd{calls_.completed};
        JobNotifyClient::OnResponseComplete(result);
    }
    void OnRequestError(const WINHTTP_ASYNC_RESULT& result) override {
        calls_.failed.set();
        JobNotifyClient::OnRequestError(result);
    }
    void OnJobState(const char* id, int state) override {
        calls_.news.emplace_back(id, state);
        calls_.onNews();
    }

    Calls& calls_;
};

TEST(JobNotifyClient, TakesWhateverAnEndpointAnswers) {
    const std::string longId(20'000, 'x');
    struct Row {
        const char* name;
        std::vector<std::string> pieces;  // of the body, each sent when the one before was read
        std::vector<std::pair<std::string, int>> news;
        bool logged = false;
    };
    const Row rows[] = {
        {"paused", {R"({"id":"J1","state":"paused"})"}, {{"J1", 6}}},
        {"in pieces", {R"({"id":)", R"("J2","sta)", R"(te":"error"})"}, {{"J2", 10}}},
        {"not JSON", {"<html>"}, {}, true},
        {"more than one read takes",
         {R"({"state":"idle","more":[1,{}],"id":")" + longId + "\"}"},
         {{longId, 1}}},
        {"a state of another version", {R"({"id":"J3","state":"new"})"}, {{"J3", 0}}},
        {"empty", {""}, {}, true},
        {"no object", {"[]"}, {}, true},
        {"no state", {R"({"id":"J4"})"}, {}, true},
        {"a number for an id", {R"({"id":1,"state":"idle"})"}, {}, true},
        {"nothing but opening brackets", {std::string(100'000, '[')}, {}, true},
        {"a good one after all that", {R"({"id":"J5","state":"completed"})"}, {{"J5", 7}}},
    };
    Calls calls;
    std::vector<std::string> heads;
    ScriptedServer server([&](ScriptedPeer& peer, int) {
        for (const Row& row : rows) {
            heads.push_back(peer.request());
            size_t size = 0;
            for (const std::string& piece : row.pieces) {
                size += piece.size();
            }
            peer.send("HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(size) + "\r\n\r\n");
            for (const std::string& piece : row.pieces) {
                peer.send(piece);
                if (&piece != &row.pieces.back()) {
                    EXPECT_TRUE(calls.read.wait()) << row.name;
                }
            }
        }
        peer.drain();
    });
    test::LogCapture log;
    {
        Client client(calls);
        size_t logged = 0;
        for (const Row& row : rows) {
            calls.news.clear();
            calls.read.reset();
            ASSERT_EQ(client.open(server), S_OK) << row.name;
            ASSERT_TRUE(calls.completed.wait()) << row.name;
            EXPECT_EQ(calls.news, row.news) << row.name;
            logged += row.logged ? 1 : 0;
        }
        client.Close();
        EXPECT_EQ(log.lines().size(), logged);
        EXPECT_EQ(client.open(server), HRESULT_FROM_WIN32(ERROR_CANCELLED));
    }
    EXPECT_EQ(server.connections(), 1) << "the handles serve every request";
    ASSERT_EQ(heads.size(), std::size(rows));
    for (const std::string& head : heads) {
        EXPECT_EQ(head.find("GET /jobnotify/ HTTP/1.1\r\n"), 0U) << head;
    }
}

TEST(JobNotifyClient, AsksAgainUntilTheEndpointIsThere) {
    ScriptedServer server(
        [](ScriptedPeer& peer, int) {
            peer.request();
            peer.answer(R"({"id":"J1","state":"running"})");
            peer.drain();
        },
        true);
    Calls calls;
    test::LogCapture log;
    Client client(calls, 1);
    EXPECT_EQ(client.Open(nullptr, server.port()), HRESULT_FROM_WIN32(ERROR_INVALID_PARAMETER));
    ASSERT_EQ(client.open(server), S_OK);
    ASSERT_TRUE(calls.failed.wait());
    ASSERT_TRUE(calls.failed.wait()) << "the retry fails too";
    server.hear();
    ASSERT_TRUE(calls.completed.wait());
    client.Close();
    EXPECT_EQ(calls.news, (std::vector<std::pair<std::string, int>>{{"J1", 3}}));
}

TEST(JobNotifyClient, ClosingEndsTheWaitForARetry) {
    ScriptedServer server([](ScriptedPeer&, int) {}, true);
    Calls calls;
    test::LogCapture log;
    Client client(calls, INFINITE);
    ASSERT_EQ(client.open(server), S_OK);
    ASSERT_TRUE(calls.failed.wait());
    client.Close();
    EXPECT_TRUE(calls.news.empty());
}

TEST(JobNotifyClient, AnswersMayAskForTheNextAndClose) {
    ScriptedServer server([](ScriptedPeer& peer, int) {
        while (!peer.request().empty()) {
            peer.answer(R"({"id":"J1","state":"running"})");
        }
    });
    Calls calls;
    Signal closed;
    Client client(calls);
    calls.onNews = [&] {
        if (calls.news.size() < 3) {
            EXPECT_EQ(client.open(server), S_OK);
            return;
        }
        client.Close();
        EXPECT_EQ(client.open(server), HRESULT_FROM_WIN32(ERROR_CANCELLED));
        closed.set();
    };
    ASSERT_EQ(client.open(server), S_OK);
    ASSERT_TRUE(closed.wait());
    client.Close();
    EXPECT_EQ(calls.news.size(), 3U);
}

// The client stands in memory that is gone afterwards, so that a late call would crash.
TEST(JobNotifyClient, MayGoWhileARequestIsUnderWay) {
    struct Row {
        const char* name;
        const char* before;  // sent before the client goes
        const char* after;
    };
    const Row rows[] = {
        {"before an answer", "", "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\n{}"},
        {"in a head", "HTTP/1.1 200 OK\r\nContent-Le", "ngth: 2\r\n\r\n{}"},
        {"in a body", "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\n{", "}"},
    };
    for (const Row& row : rows) {
        Calls calls;
        Signal asked;
        Signal gone;
        Signal over;
        ScriptedServer server([&](ScriptedPeer& peer, int) {
            peer.request();
            peer.send(row.before);
            asked.set();
            EXPECT_TRUE(gone.wait()) << row.name;
            peer.send(row.after);
            peer.close();
            peer.drain();
            over.set();
        });
        void* page =
            VirtualAlloc(nullptr, sizeof(Client), MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE);
        ASSERT_NE(page, nullptr);
        auto* client = new (page) Client(calls);
        ASSERT_EQ(client->open(server), S_OK) << row.name;
        ASSERT_TRUE(asked.wait()) << row.name;
        EXPECT_EQ(client->open(server), HRESULT_FROM_WIN32(ERROR_WINHTTP_INCORRECT_HANDLE_STATE));
        client->~Client();
        VirtualFree(page, 0, MEM_RELEASE);
        gone.set();
        EXPECT_TRUE(over.wait()) << row.name;
        EXPECT_TRUE(calls.news.empty()) << row.name;
        EXPECT_FALSE(calls.completed.isSet()) << row.name;
    }
}

}  // namespace
}  // namespace dorvo

// A service for tests of the server, and a server of the test's own that serves it.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <future>
#include <map>
#include <mutex>
#include <vector>

#include "httpd/http_server.h"
#include "httpd/http_service.h"
#include "httpd/testing/client.h"

namespace dorvo {

inline constexpr size_t echoLimit = size_t{1} << 20U;

// POST /echo answers with the body, POST /poll when somebody calls answerPolls().
class EchoService : public HttpService {
public:
    Admission admit(const WebRequest& head) override {
        Admission admission;
        admission.bodyLimit = head.path == "/large" ? 4 * echoLimit : echoLimit;
        admission.judgedBytes = head.known ? SIZE_MAX : echoLimit;
        admission.known = head.known || head.cookie == "good";
        admission.weight = head.path == "/heavy" ? 4 : 1;
        if (head.method != "POST") {
            admission.refusal = refuse(405, "only POST");
            admission.refusal->allow = "POST";
        } else if (head.path == "/nowhere") {
            admission.refusal = refuse(404, "no such path");
        } else if (head.path == "/unjudgeable") {
            throw std::bad_alloc();
        } else if (head.path == "/held") {
            held.set_value();
            letGo.get_future().wait();
        }
        return admission;
    }

    std::optional<WebReply> judgeLargeBody(const WebRequest& head) override {
        return head.cookie == "good" ? std::optional<WebReply>() : refuse(401, "no cookie");
    }

    std::optional<LongPoll> handle(const WebRequest& request, Respond respond) override {
        ++handled;
        WebReply reply;
        reply.body = request.body;
        if (request.cookie == "late") {
            reply.known = true;
        }
        if (request.path == "/unanswerable") {
            throw std::bad_alloc();
        }
        if (request.path != "/poll") {
            respond(reply);
            return {};
        }
        const std::lock_guard guard(lock_);
        const int poll = ++polls_;
        waiting_.emplace(poll, std::move(respond));
        changed_.notify_all();
        LongPoll wait;
        wait.withdraw = [this, poll] {
            const std::lock_guard inner(lock_);
            withdrawn_ += waiting_.erase(poll);
            changed_.notify_all();
        };
        wait.patience = patience;
        wait.late.body = "late";
        return wait;
    }

    WebReply refuse(int status, const char* why) override {
        WebReply reply;
        reply.status = status;
        reply.body = why;
        reply.retryAfter = status == 503 ? 5 : 0;
        return reply;
    }

    void awaitPolls(size_t count) {
        std::unique_lock lock(lock_);
        changed_.wait(lock, [&] { return waiting_.size() == count; });
    }

    void awaitWithdrawn(size_t count) {
        std::unique_lock lock(lock_);
        changed_.wait(lock, [&] { return withdrawn_ == count; });
    }

    void answerPolls(const std::string& body) {
        const std::lock_guard guard(lock_);
        for (const auto& [poll, respond] : waiting_) {
            WebReply reply;
            reply.body = body;
            respond(reply);
        }
        waiting_.clear();
    }

    std::optional<std::chrono::milliseconds> patience;
    // The first tells that a request to /held is judged, which ends with the second.
    std::promise<void> held;
    std::promise<void> letGo;
    std::atomic<int> handled = 0;  // requests

private:
    std::mutex lock_;  // guards what follows
    std::condition_variable changed_;
    int polls_ = 0;
    size_t withdrawn_ = 0;
    std::map<int, Respond> waiting_;
};

inline std::string head(const std::string& path, const std::string& fields) {
    return "POST " + path + " HTTP/1.1\r\nHost: x\r\n" + fields + "\r\n";
}

inline std::string sized(const std::string& path, const std::string& body) {
    return head(path, "Content-Length: " + std::to_string(body.size()) + "\r\n") + body;
}

class Http : public testing::Test {
protected:
    void SetUp() override { restart(); }

    void restart() {
        server.reset();
        server = std::make_unique<HttpServer>(service, "127.0.0.1", uint16_t{0}, limits,
                                              HttpThreads{1, 2}, [this](const std::string& line) {
                                                  const std::lock_guard guard(lock_);
                                                  lines_.push_back(line);
                                              });
    }

    // Whether a line of the log holds the text.
    bool hasLogged(std::string_view text) {
        const std::lock_guard guard(lock_);
        return std::any_of(lines_.begin(), lines_.end(), [text](const std::string& line) {
            return line.find(text) != std::string::npos;
        });
    }

    Answer ask(const std::string& body) {
        Client client(server->port());
        client.send(sized("/echo", body));
        return client.receive();
    }

    EchoService service;
    HttpLimits limits;
    std::unique_ptr<HttpServer> server;

private:
    std::mutex lock_;  // guards what follows
    std::vector<std::string> lines_;
};

}  // namespace dorvo

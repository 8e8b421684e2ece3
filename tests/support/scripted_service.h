// Plays the web storage service: keeps every request, and answers what the test says.
//
// Read what was seen when no command is running.
// Forgets the client's idle connections when it goes.
#pragma once

#include "support/scripted_server.h"
// The sockets' header comes before the others.

#include <algorithm>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "http_util/http_connections.h"

namespace dorvo::test {

// One request as the service saw it.
struct Seen {
    std::string endpoint;  // the file name of its path, without ".php"
    std::string head;
    std::string body;
};

struct Answer {
    std::string status = "200 OK";
    std::string body = "{}";
    bool chunked = false;     // without a length
    std::string fields = {};  // further lines of the head
};

class ScriptedService {
public:
    // Nothing ends the connection without an answer.
    using Reply = std::function<std::optional<Answer>(const Seen&)>;

    explicit ScriptedService(Reply reply)
        : reply_(std::move(reply)), server_([this](ScriptedPeer& peer, int) { serve(peer); }) {}
    ~ScriptedService() { ATL::CComSingleton<HTTP_Connections>::instance()->stop(); }
    ScriptedService(const ScriptedService&) = delete;
    ScriptedService& operator=(const ScriptedService&) = delete;

    uint16_t port() const { return server_.port(); }
    const std::vector<Seen>& seen() const { return seen_; }
    const Seen& last() const { return seen_.back(); }
    void forget() { seen_.clear(); }
    std::vector<std::string> endpoints() const {
        std::vector<std::string> names(seen_.size());
        std::transform(seen_.begin(), seen_.end(), names.begin(),
                       [](const Seen& seen) { return seen.endpoint; });
        return names;
    }

private:
    void serve(ScriptedPeer& peer) {
        for (std::string request = peer.request(); !request.empty(); request = peer.request()) {
            const size_t split = request.find("\r\n\r\n");
            Seen seen{{}, request.substr(0, split + 2), request.substr(split + 4)};
            const std::string path = seen.head.substr(0, seen.head.find(".php"));
            seen.endpoint = path.substr(path.rfind('/') + 1);
            {
                const std::lock_guard guard(lock_);
                seen_.push_back(seen);
            }
            const std::optional<Answer> answer = reply_(seen);
            if (!answer.has_value() || !send(peer, *answer)) {
                return;
            }
        }
    }
    static bool send(ScriptedPeer& peer, const Answer& answer) {
        if (!answer.chunked) {
            return peer.answer(answer.body, answer.status, answer.fields);
        }
        char size[32];
        static_cast<void>(std::snprintf(size, sizeof(size), "%zx\r\n", answer.body.size()));
        return peer.send("HTTP/1.1 " + answer.status + "\r\nTransfer-Encoding: chunked\r\n\r\n" +
                         size + answer.body + "\r\n0\r\n\r\n");
    }

    Reply reply_;
    std::mutex lock_;  // guards seen_ while commands are running
    std::vector<Seen> seen_;
    ScriptedServer server_;
};

}  // namespace dorvo::test

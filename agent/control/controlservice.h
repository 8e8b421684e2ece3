// What the control port answers: one table of all requests, and the rules they share.
// docs/control-port.md describes them.
#pragma once

#include <json_spirit/json_spirit.h>

#include <atomic>
#include <string>
#include <string_view>

#include "control/eventlog.h"
#include "engine/engine.h"
#include "httpd/http_service.h"

namespace dorvo::agent {

class ControlService : public HttpService {
public:
    // Borrows engine and events.
    ControlService(Engine& engine, EventLog& events, std::string token, std::string proof)
        : engine_(engine), events_(events), token_(std::move(token)), proof_(std::move(proof)) {}

    Admission admit(const WebRequest& head) override;
    std::optional<LongPoll> handle(const WebRequest& request, Respond respond) override;
    WebReply refuse(int status, const char* why) override;

private:
    struct Endpoint;
    static const Endpoint* find(std::string_view path);

    WebReply call(const Endpoint& endpoint, const WebRequest& request,
                  const json_spirit::Object& body);
    std::optional<LongPoll> pollEvents(int64_t after, const Respond& respond);
    std::optional<LongPoll> pollState(int64_t mark, const Respond& respond);

    Engine& engine_;
    EventLog& events_;
    std::atomic<int> slow_ = 0;  // calls under way that wait for the storage server
    const std::string token_;
    const std::string proof_;  // what shows who knows the token that this is the resident
};

}  // namespace dorvo::agent

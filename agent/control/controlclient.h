// One request after the other to the resident agent's control port.
//
// One thread calls; close() comes from any.
#pragma once

#include <json_spirit/json_spirit.h>

#include <chrono>
#include <memory>
#include <string>

#include "control/controlfile.h"
#include "text/agenterror.h"

namespace dorvo::agent {

// No resident answers the call.
class ResidentGone : public AgentError {
public:
    using AgentError::AgentError;
};

class ControlClient {
public:
    explicit ControlClient(ControlAddress address);
    ~ControlClient();
    ControlClient(const ControlClient&) = delete;
    ControlClient& operator=(const ControlClient&) = delete;

    // POST /control/<name> on a connection of its own; gives the answer's object. Waits for the
    // answer as long as `patience`. Throws what the resident has to say as an AgentError, else
    // ResidentGone.
    json_spirit::Object call(const std::string& name, const json_spirit::Object& body,
                             std::chrono::milliseconds patience);

    // Ends the call in progress, which throws ResidentGone as all later ones do.
    void close();

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace dorvo::agent

// The resident agent's port on 127.0.0.1: commands with the token drive the engine, anybody on this
// machine can wait for news of a job's state. docs/control-port.md has the requests.
//
// The engine's verbs are called on threads of the server's, several at once.
#pragma once

#include <memory>

#include "control/controlfile.h"
#include "control/eventlog.h"
#include "engine/engine.h"

namespace dorvo::agent {

class ControlServer {
public:
    // Answers when it returns, on any free port and with new secrets. Borrows both. Throws
    // AgentError.
    ControlServer(Engine& engine, EventLog& events);
    // stop()
    ~ControlServer();
    ControlServer(const ControlServer&) = delete;
    ControlServer& operator=(const ControlServer&) = delete;

    // For the ControlFile.
    const ControlAddress& address() const;

    // Ends the polls, waits for calls in progress and joins. Idempotent.
    void stop();

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace dorvo::agent

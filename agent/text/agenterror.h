// How a command ends: its exit code, and the error that ends it early, one sentence for the user in
// UTF-8.
#pragma once

#include <stdexcept>
#include <string>

namespace dorvo::agent {

enum ExitCode : int {
    exitDone = 0,
    exitFailed = 1,
    exitUsage = 2,
    exitSomeFailed = 3,  // the run is done, but items of it failed
    exitStopped = 4,     // the run was paused or cancelled
};

class AgentError : public std::runtime_error {
public:
    explicit AgentError(const std::string& sentence, ExitCode code = exitFailed)
        : std::runtime_error(sentence), code_(code) {}

    ExitCode code() const { return code_; }

private:
    ExitCode code_;
};

}  // namespace dorvo::agent

// Ends a command: one sentence for the user, in UTF-8, and the exit code.
#pragma once

#include <stdexcept>
#include <string>

#include "text/exitcode.h"

namespace dorvo::agent {

class AgentError : public std::runtime_error {
public:
    explicit AgentError(const std::string& sentence, ExitCode code = exitFailed)
        : std::runtime_error(sentence), code_(code) {}

    ExitCode code() const { return code_; }

private:
    ExitCode code_;
};

}  // namespace dorvo::agent

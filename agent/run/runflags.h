// The options of the commands that run a job: --no-wait and --json.
#pragma once

#include <CLI/CLI.hpp>
#include "engine/engine.h"

namespace dorvo::agent {

struct RunFlags {
    bool noWait = false;
    bool json = false;

    void describe(CLI::App& command);
    // Throws AgentError when --no-wait was given and this process would have to run the job.
    void check(const Engine& engine) const;
};

}  // namespace dorvo::agent

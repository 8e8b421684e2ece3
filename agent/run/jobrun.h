// Runs a job and waits for the end of the run, or leaves it to the resident agent.
//
// A run that pauses itself for the network is waited for. Ctrl+C pauses the run for the user.
#pragma once

#include <CLI/CLI.hpp>

#include <functional>

#include "engine/engine.h"
#include "text/terminal.h"

namespace dorvo::agent {

// The options of the commands that run a job: --no-wait and --json.
struct RunFlags {
    bool noWait = false;
    bool json = false;

    void describe(CLI::App& command);
    // Throws AgentError when --no-wait was given and this process would have to run the job.
    void check(const Engine& engine) const;
};

// `begin` has the engine run the job; whatever happens from then on is heard. Shows the run on the
// terminal and each failed item on its error stream. Returns the exit code; throws AgentError when
// the run cannot be started, and when the resident agent ends before the run does.
int runJob(Engine& engine, Terminal& terminal, const JobDefinition& job,
           const std::function<void()>& begin, const RunFlags& flags);

// Has the job run, with its definition submitted first where that has `changed`. Restores, and
// backups that are to run once, run when they are submitted and are not started a second time.
void startRun(Engine& engine, const JobDefinition& job, bool changed);

}  // namespace dorvo::agent

// Runs a job and waits for the end of the run, or leaves it to the resident agent.
//
// A run that pauses itself for the network is waited for. Ctrl+C pauses the run for the user.
#pragma once

#include "engine/engine.h"
#include "runflags.h"
#include "terminal.h"

namespace dorvo::agent {

// `verb` is `start` or `resume`. Shows the run on the terminal and each failed item on its error
// stream. Returns the exit code; throws AgentError when the run cannot be started, and when the
// resident agent ends before the run does.
int runJob(Engine& engine, Terminal& terminal, const JobDefinition& job, JobVerb verb,
           const RunFlags& flags);

}  // namespace dorvo::agent

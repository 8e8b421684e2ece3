// Runs a job of the opened module and waits for the end of the run.
//
// A run that pauses itself for the network is waited for. Ctrl+C pauses the run for the user.
#pragma once

#include "jobdef/jobdefinition.h"
#include "terminal.h"

namespace dorvo::agent {

enum class RunStart { fresh, resumed };

// Shows the run on the terminal and each failed item on its error stream. Returns the exit code;
// throws AgentError when the run cannot be started.
int runJob(Terminal& terminal, const JobDefinition& job, RunStart start);

}  // namespace dorvo::agent

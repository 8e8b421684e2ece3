// When a run that is waited for is over, and what it ends the command with. Pure.
#pragma once

#include <optional>

#include "record/jobactivity.h"
#include "text/exitcode.h"

namespace dorvo::agent {

// Nothing while the run goes on. A run that has paused itself goes on: it resumes by itself.
std::optional<ExitCode> outcomeOf(const JobActivity& record);

// True while the run has paused itself and waits for the server.
bool waitsForServer(const JobActivity& record);

// True while a run is under way or has paused itself, and its end can be waited for.
bool runsOrWaits(const JobActivity& record);

// True for a run that can be gone on with: paused, or under way when its process ended.
bool unfinished(const JobActivity& record);

}  // namespace dorvo::agent

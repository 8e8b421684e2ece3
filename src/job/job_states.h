// What each state of a job makes of each request: the decisions of Job, without its effects.
#pragma once

#include <cstdint>

#include "base/job_state.h"

namespace dorvo {

// The command codes that reach a running work thread.
enum class JobCommand : int32_t { none = 0, stop = 2, pause = 3, resume = 4 };

// What a work thread does that finds a command in a state.
struct PollOutcome {
    int32_t next;  // the state afterwards
    bool sync;     // the record is flushed
    bool carryOn;  // the run goes on
};

// `command` is stop, pause or resume.
PollOutcome pollCommand(int32_t state, JobCommand command);

// Whether a work thread that finds no command carries on.
bool carriesOn(int32_t state);

// The states from which start() begins a new run.
bool restartable(int32_t state);

enum class ResumeAction { refuse, nothing, begin };
ResumeAction resumeAction(int32_t state);

enum class PauseAction { nothing, park, request, keep };
// `keep`: the job is pausing or paused already, and a user's pause makes that the user's.
PauseAction pauseAction(int32_t state);

}  // namespace dorvo

// The life of the job module in its host process.
//
// The host opens the module once, before any other use of jobs, and closes it before the process
// ends: static destructors neither wait nor lock, so what still runs then is cut off. Between the
// two everything of the module may be used from any thread. Not to be called from an observer or
// on one of the module's own threads.
#pragma once

#include "base/api.h"

namespace dorvo {

// What the module does about due times: starts its jobs, or leaves them on record for the process
// that opens the module next.
enum class DueTimes { kept, left };

// Starts the timer dispatcher and loads the jobs of the machine, of which interrupted ones resume
// by themselves. False, with nothing left running and the thread's last error, when the dispatcher
// cannot be started, or, logged and with 5023, when this process has closed the module before. The
// process that opens the module owns the data directory.
DORVO_JOB_API bool openJobModule(DueTimes dueTimes = DueTimes::kept);

// Stops what runs by itself (the host has taken its update scheduler off), then every run (which
// pauses and can be resumed by the next process), then delivers the events posted so far. Blocks
// until the last thread is joined. Idempotent; the command queue does not come back, so the module
// is opened once a process.
DORVO_JOB_API void closeJobModule();

}  // namespace dorvo

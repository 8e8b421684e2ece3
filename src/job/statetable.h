// The states of a job: what each makes of each command, and what they have in common.
//
// Values in, values out; the tables are in statetable.cpp, on one screen. Who asks them decides
// nothing more about states. The state on record is moved by Lifecycle alone.
#pragma once

#include <cstdint>

#include "base/job_state.h"

namespace dorvo {

// A thread works on the run, or did when its process ended.
constexpr bool isUnderWay(JobState state) {
    return (state >= JobState::starting && state <= JobState::pausing) ||
           state == JobState::canceling;
}
// A run that finds no command goes on.
constexpr bool carriesOn(JobState state) {
    return state >= JobState::starting && state <= JobState::completing;
}
// The last run has ended for good.
constexpr bool isFinal(JobState state) {
    return state == JobState::completed || state == JobState::cancelled || state == JobState::error;
}
// A new run may begin, and a new definition be taken.
constexpr bool isRestartable(JobState state) {
    return state == JobState::idle || isFinal(state);
}
// There is a run that is not asked to end: it goes on, now or later.
constexpr bool isUnfinished(JobState state) {
    return state >= JobState::starting && state <= JobState::paused;
}

// What is asked of a job, on a caller's thread.
enum class JobRequest { init, start, stop, pause, resume };

enum class Answer {
    nothing,   // true, and nothing is done
    refuse,    // false, and nothing is done
    begin,     // a new run begins
    goOn,      // the paused run goes on
    takeBack,  // a run goes on: a pause that it has not seen yet is taken back
    tell,      // the run is told by a JobCommand
    park,      // the job is paused before its first run
    keep,      // the job is pausing or paused already: a user's pause makes that the user's
    drop,      // the paused run ends cancelled
    takeUp,    // a process has ended in the midst of the run: see leftAs()
    distrust,  // no job has such a state: the record is damaged
};

Answer answer(JobRequest request, JobState state);

// What a run is, paused, cancelled or failed, that its process has left in that state with that
// pending.
JobState leftAs(JobState state, JobState pending);

// The command codes that reach a running work thread.
enum class JobCommand : int32_t { none = 0, stop = 2, pause = 3, resume = 4 };

// What a work thread does that finds a command in a state.
struct PollOutcome {
    JobState next;  // the state afterwards
    bool sync;      // the record is flushed
    bool carryOn;   // the run goes on
};

// `command` is stop, pause or resume.
PollOutcome pollCommand(JobState state, JobCommand command);

}  // namespace dorvo

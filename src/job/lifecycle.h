// The one way from one state of a job to the next: stores the state on the job's record, flushes it
// and has observers told. What comes next is decided by the table (statetable.h) and its callers.
//
// Callers keep moves of several threads apart: docs/locks.md. The order of the stores is for the
// process that comes after one which was killed between two of them: leftAs() makes of what it
// finds what the run would have become. The record is borrowed.
#pragma once

#include <cstdint>
#include <functional>
#include <utility>

#include "job/statetable.h"
#include "record/jobactivityhandle.h"

namespace dorvo {

class Lifecycle {
public:
    using Teller = std::function<void(JobState)>;
    enum class Tell { observers, nobody };

    Lifecycle(JobActivityHandle& activity, Teller teller)
        : activity_(activity), teller_(std::move(teller)) {}

    // As on record, none without one.
    JobState state() const;
    JobState pending() const;

    // Stores the state, flushes the record, tells observers. Nobody is told where they know already
    // or hear of it later.
    void move(JobState next, Tell tell = Tell::observers);
    // The run has seen a command. Gives whether it carries on.
    bool obey(JobCommand command);
    // Notes and flushes what is coming, before a run has seen it or while it is being done:
    // pausing, canceling, or error for a run that is being dropped; none when nothing is.
    void pend(JobState coming);
    // The last stores of a run, or of one part of it: with which code it has ended or is paused,
    // then the state, then that nothing is pending. Observers hear of it from the caller.
    void end(JobState last, uint32_t error);

    // The record begins anew, in its state: for a new run, or for a job that goes, as idle.
    void reset();
    void forget();

private:
    void store(JobState state);

    JobActivityHandle& activity_;  // borrowed
    const Teller teller_;
};

}  // namespace dorvo

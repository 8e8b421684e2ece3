// Tells the user how a run goes on: a line that is redrawn on a terminal, plain lines otherwise.
//
// Plain lines are changes of state, the beginning of each wait for the storage, and the progress
// every ten seconds. Times are milliseconds of any steady clock. One thread.
#pragma once

#include <cstdint>
#include <string>

#include "job/activity/jobactivity.h"
#include "runwords.h"
#include "terminal.h"

namespace dorvo::agent {

class RunReporter {
public:
    // The terminal is borrowed.
    RunReporter(Terminal& terminal, RunWords words);

    // Shows the record as it is now.
    void show(const JobActivity& record, uint64_t nowMs);

    // The run has met an error: why it waits, if it waits next.
    void reason(std::string text) { reason_ = std::move(text); }

private:
    void showState(const JobActivity& record, uint64_t nowMs);
    void showPause(const JobActivity& record, uint64_t nowMs);
    void showLive(const JobActivity& record, uint64_t nowMs);
    std::string beginning(const JobActivity& record) const;
    std::string waiting(uint64_t nowMs) const;

    Terminal& terminal_;
    RunWords words_;
    std::string reason_;
    JobState shown_ = JobState::none;  // the state of the last show()
    bool pauseUnsaid_ = false;         // the wait has begun, its reason may still be on its way
    uint64_t pausedAt_ = 0;
    uint64_t nextProgress_ = 0;
};

}  // namespace dorvo::agent

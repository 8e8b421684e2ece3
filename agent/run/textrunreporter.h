// Tells people how a run goes on: a line that is redrawn on a terminal, plain lines otherwise.
//
// Plain lines are changes of state, the beginning of each wait for the storage, and the progress
// every ten seconds. Each item that failed goes to the error stream.
#pragma once

#include "run/runreporter.h"
#include "run/runwords.h"

namespace dorvo::agent {

class TextRunReporter : public RunReporter {
public:
    // Both are borrowed.
    TextRunReporter(Terminal& terminal, const JobDefinition& job);

    void show(const JobActivity& record, uint64_t nowMs) override;
    void reason(std::string text) override { reason_ = std::move(text); }
    void finish(const RunResult& result) override;

private:
    void showState(const JobActivity& record, uint64_t nowMs);
    void showPause(const JobActivity& record, uint64_t nowMs);
    void showLive(const JobActivity& record, uint64_t nowMs);
    std::string beginning(const JobActivity& record) const;
    std::string waiting(uint64_t nowMs) const;
    uint64_t leftOfWait(uint64_t nowMs) const;  // milliseconds

    Terminal& terminal_;
    const JobDefinition& job_;
    const RunWords words_;
    std::string reason_;
    JobState shown_ = JobState::none;  // the state of the last show()
    bool pauseUnsaid_ = false;         // the wait has begun, its reason may still be on its way
    uint64_t pausedAt_ = 0;
    uint64_t nextProgress_ = 0;
};

}  // namespace dorvo::agent

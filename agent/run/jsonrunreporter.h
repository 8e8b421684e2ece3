// Tells scripts how a run goes on: one JSON object a line.
//
// While it runs, {"id", "name", "state", "percent", "bytes", "totalBytes", "files", "fileCount",
// "speed", "remainTime", "file"} at each change of state and at most twice a second, with "reason",
// "since" and "until" where it waits, empty where they are not known, and again when they become
// known; at the end {"id", "name", "summary": {...}}.
#pragma once

#include "run/runreporter.h"

namespace dorvo::agent {

class JsonRunReporter : public RunReporter {
public:
    // Both are borrowed.
    JsonRunReporter(Terminal& terminal, const JobDefinition& job)
        : terminal_(terminal), job_(job) {}

    void show(const JobActivity& record, uint64_t nowMs) override;
    void reason(std::string text) override;
    void finish(const RunResult& result) override;

private:
    Terminal& terminal_;
    const JobDefinition& job_;
    std::string reason_;
    bool reasonUnsaid_ = false;
    JobState shown_ = JobState::none;  // the state of the last show()
    uint64_t nextProgress_ = 0;
    uint64_t until_ = 0;  // as it was said last
};

}  // namespace dorvo::agent

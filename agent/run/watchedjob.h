// One of the jobs whose runs are watched: notices that a run begins, and follows it to its end.
#pragma once

#include <memory>
#include <optional>

#include "run/runfollow.h"

namespace dorvo::agent {

class WatchedJob {
public:
    // The terminal and the events are borrowed. Runs that have ended before are none of its.
    WatchedJob(std::unique_ptr<JobDefinition> job, Terminal& terminal, bool json);

    const JobDefinition& job() const { return *job_; }

    // One look. True once for each run that is over, or cannot be followed any more: end() is then
    // how.
    bool look(RunEvents& events, uint64_t nowMs);
    const RunEnd& end() const { return end_; }
    bool following() const { return follower_.has_value(); }

    // Two looks at a record: whether a run has begun, or has been, between them. `mapped` says
    // whether a process has the job. Pure.
    static bool hasRun(const JobActivity& before, const JobActivity& now, bool mapped);

private:
    std::unique_ptr<JobDefinition> job_;
    Terminal& terminal_;
    bool json_;
    JobActivity before_{};
    std::unique_ptr<RunReporter> reporter_;
    std::optional<RunFollower> follower_;
    RunEnd end_;
};

}  // namespace dorvo::agent

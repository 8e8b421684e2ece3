#include "run/watchedjob.h"

#include "data/runoutcome.h"

namespace dorvo::agent {

WatchedJob::WatchedJob(std::unique_ptr<JobDefinition> job, Terminal& terminal, bool json)
    : job_(std::move(job)), terminal_(terminal), json_(json) {
    lookAtRecord(job_->id(), before_);
}

bool WatchedJob::look(RunEvents& events, uint64_t nowMs) {
    if (!follower_) {
        JobActivity now = before_;
        const bool mapped = lookAtRecord(job_->id(), now) == RecordLook::mapped;
        if (!hasRun(before_, now, mapped)) {
            return false;
        }
        reporter_ = makeRunReporter(terminal_, *job_, json_);
        follower_.emplace(*job_, events, *reporter_);
    }
    if (!follower_->look(nowMs)) {
        return false;
    }
    end_ = follower_->end();
    before_ = end_.record;
    follower_.reset();
    reporter_.reset();
    return true;
}

bool WatchedJob::hasRun(const JobActivity& before, const JobActivity& now, bool mapped) {
    // A new run's record is emptied before its state changes, but for the time of the last one.
    return outcomeOf(now) ? now.lastRunTime != before.lastRunTime : mapped && runsOrWaits(now);
}

}  // namespace dorvo::agent

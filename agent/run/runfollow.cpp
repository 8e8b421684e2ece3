#include "run/runfollow.h"

#include "base/text.h"
#include "data/jobstore.h"
#include "data/runoutcome.h"
#include "job/statetable.h"

namespace dorvo::agent {
namespace {

constexpr DWORD redrawMs = 500;

}  // namespace

bool RunFollower::look(uint64_t nowMs) {
    // Asked before the record is read, which then shows what has become of the run.
    const bool ended = events_.ended();
    const bool removed = events_.removed(job_.id());
    if (std::string reason = events_.takeReason(job_); !reason.empty()) {
        reporter_.reason(std::move(reason));
    }
    const RecordLook seen = readRecord();
    if (seen != RecordLook::none && !removed) {
        if (const auto outcome = outcomeOf(end_.record)) {
            end_.code = *outcome;
            reporter_.finish(loadResult(job_, end_.record, *outcome));
            return true;
        }
    }
    end_.lost = loss(seen, ended, removed);
    if (!end_.lost.empty()) {
        end_.code = exitStopped;
        return true;
    }
    if (seen != RecordLook::none) {
        reporter_.show(end_.record, nowMs);
    }
    return false;
}

// The record of the run that is followed: of one that has ended and after which another has begun
// since the last look, what was seen last, with the end that the history has of it.
RecordLook RunFollower::readRecord() {
    JobActivity& record = end_.record;
    JobActivity now{};
    const RecordLook seen = lookAtRecord(job_.id(), now);
    if (seen == RecordLook::none) {
        return seen;
    }
    if (record.hasInstance() && now.hasInstance() && now.instanceId != record.instanceId) {
        const PastRun past = loadRun(job_.id(), instanceOf(record));
        record.state = jobStateFromString(past.state.c_str());
        record.failedItems = static_cast<uint32_t>(past.failed.size());
        record.lastRunTime = now.lastRunTime;
        if (isFinal(static_cast<JobState>(record.state))) {
            return seen;
        }
    }
    record = now;
    return seen;
}

// A record that nobody has mapped may be one of a process that is just opening or closing the job;
// that the process is gone is announced, where announcements come.
std::string RunFollower::loss(RecordLook seen, bool ended, bool removed) const {
    const std::string name = toUtf8(job_.name());
    if (removed || (seen == RecordLook::none && !hasJob(job_.id()))) {
        return "The job '" + name + "' has been removed with its run";
    }
    if (ended) {
        return "The resident agent has ended: the run of job '" + name +
               "' goes on when the agent starts again";
    }
    if (!events_.hears() && seen != RecordLook::mapped) {
        return "The process that ran the job '" + name +
               "' has ended: go on with 'agent resume \"" + name + "\"'";
    }
    return {};
}

RunEnd RunFollower::follow(HANDLE interrupt, const std::function<void()>& interrupted) {
    while (!look(GetTickCount64())) {
        if (!events_.wait(interrupt, redrawMs)) {
            interrupted();
        }
    }
    return end_;
}

}  // namespace dorvo::agent
